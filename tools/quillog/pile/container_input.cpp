#include "quillog/pile/container_input.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace {

constexpr size_t kPiece = 262144;
/// Deflate makes up to 1032 bytes of one, of a log's text less than a tenth of that.
constexpr uint64_t kMostExpansion = 500;

}  // namespace

ContainerInput::ContainerInput(const ByteRange& from, Form what) : file(from), form(what), buffer(kPiece, '\0') {
  struct stat status = {};
  if (file.length == ByteRange::kToTheEnd) {
    file.length = fstat(file.fd(), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
  }
  text.resize(form == Form::kGzipTar ? kPiece : 0);
  inflateInit2(&inflater, 15 + 16);  // without memory nothing can be inflated, which is reported
}

ContainerInput::ContainerInput(int from, std::string beginning, Form what)
    : stream(from), head(std::move(beginning)), form(what), buffer(kPiece, '\0') {
  text.resize(form == Form::kGzipTar ? kPiece : 0);
  inflateInit2(&inflater, 15 + 16);
}

ContainerInput::~ContainerInput() {
  inflateEnd(&inflater);
}

bool ContainerInput::Open(archive* reader) {
  position = 0;
  archive_read_set_read_callback(reader, Read);
  if (CanSeek()) {
    archive_read_set_skip_callback(reader, Skip);
    archive_read_set_seek_callback(reader, Seek);
  }
  archive_read_set_callback_data(reader, this);
  return archive_read_open1(reader) == ARCHIVE_OK;
}

bool ContainerInput::Explodes(uint64_t made, uint64_t of, uint64_t allowance) {
  return made > allowance && made / kMostExpansion > of;
}

la_ssize_t ContainerInput::Read(archive* reader, void* self, const void** bytes) {
  auto* input = static_cast<ContainerInput*>(self);
  const bool isGzip = input->form == Form::kGzipTar;
  const ssize_t size = isGzip ? input->Inflate() : input->Fill();
  if (size > 0 && input->allowed < static_cast<uint64_t>(size)) {
    input->fault = "a header is longer than any";
  } else if (size >= 0) {
    input->allowed -= input->allowed == UINT64_MAX ? 0 : static_cast<uint64_t>(size);
    *bytes = isGzip ? input->text.data() : input->buffer.data();
    return size;
  }
  const int error = input->fault != nullptr ? EINVAL : errno;
  archive_set_error(reader, error, "%s", input->fault != nullptr ? input->fault : strerror(error));
  return ARCHIVE_FATAL;
}

la_int64_t ContainerInput::Skip(archive*, void* self, la_int64_t wanted) {
  auto* input = static_cast<ContainerInput*>(self);
  const uint64_t left = input->file.length - std::min(input->position, input->file.length);
  const uint64_t size = std::min(left, static_cast<uint64_t>(std::max<la_int64_t>(wanted, 0)));
  input->position += size;
  return static_cast<la_int64_t>(size);
}

la_int64_t ContainerInput::Seek(archive*, void* self, la_int64_t offset, int whence) {
  auto* input = static_cast<ContainerInput*>(self);
  const auto end = static_cast<la_int64_t>(input->file.length);
  const auto now = static_cast<la_int64_t>(input->position);
  const la_int64_t from = whence == SEEK_SET ? 0 : whence == SEEK_END ? end : now;
  if (offset < -from || offset > end - from) {
    return ARCHIVE_FATAL;
  }
  input->position = static_cast<uint64_t>(from + offset);
  return from + offset;
}

/// Reads the next bytes of the container. 0 at its end, negative: it cannot be read (errno).
ssize_t ContainerInput::Fill() {
  ssize_t size;
  if (stream >= 0 && position < head.size()) {
    size = static_cast<ssize_t>(head.copy(buffer.data(), kPiece, static_cast<size_t>(position)));
  } else {
    const auto wanted = static_cast<size_t>(
        stream >= 0 ? kPiece : std::min<uint64_t>(kPiece, file.length - std::min(position, file.length)));
    do {
      size = stream >= 0 ? ::read(stream, buffer.data(), wanted)
                         : pread(file.fd(), buffer.data(), wanted, static_cast<off_t>(file.base + position));
    } while (size < 0 && errno == EINTR);
  }
  position += static_cast<uint64_t>(std::max<ssize_t>(size, 0));
  read += static_cast<uint64_t>(std::max<ssize_t>(size, 0));
  return size;
}

/// Makes the next bytes of the tar stream. 0 at its end, negative: that is all that can be made (`fault` or errno).
ssize_t ContainerInput::Inflate() {
  inflater.next_out = reinterpret_cast<Bytef*>(text.data());
  inflater.avail_out = static_cast<uInt>(text.size());
  while (inflater.avail_out > 0 && !isAtEnd && fault == nullptr) {
    if (inflater.avail_in == 0) {
      const ssize_t size = Fill();
      if (size < 0) {
        return size;
      }
      isAtEnd = size == 0;
      fault = isAtEnd && isInMember ? "its gzip data is cut short" : nullptr;
      inflater.next_in = reinterpret_cast<Bytef*>(buffer.data());
      inflater.avail_in = static_cast<uInt>(size);
      continue;
    }
    const int result = inflate(&inflater, Z_NO_FLUSH);
    const bool isJunk = result != Z_OK && result != Z_STREAM_END;
    isAtEnd = isJunk && !isInMember && made > 0;  // what follows the last member
    fault = isJunk && !isAtEnd ? "its gzip data is damaged" : nullptr;
    isInMember = result == Z_OK;
    if (result == Z_STREAM_END) {
      inflateReset(&inflater);
    }
  }
  const size_t size = text.size() - inflater.avail_out;
  made += size;
  if (Explodes(made, read, kPileAllowance)) {
    fault = kExplosion;
    return -1;
  }
  return size > 0 || fault == nullptr ? static_cast<ssize_t>(size) : -1;
}
