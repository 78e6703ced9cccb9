#include "quillog/pile/container.h"

#include <archive.h>
#include <archive_entry.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "logfile/file_names.h"
#include "quillog/pile/container_input.h"

namespace {

constexpr uint64_t kMostEntries = 1000000;          ///< looked at
constexpr size_t kMostKept = 100000;                ///< an output of the longest history has 1200 files
constexpr uint64_t kMostTexts = uint64_t{1} << 30;  ///< bytes of files whose name does not tell an output
constexpr size_t kMostDepth = 64;
constexpr size_t kMostPath = 4096;
constexpr size_t kMostMessages = 20;  ///< of a container
constexpr int kMostRestarts = 20;
/// Enough to tell text from other bytes, and for the header of a tar stream inside gzip.
constexpr size_t kHead = 4096;
constexpr size_t kTarBlock = 512;

// A tar header's fields.
constexpr size_t kTarName = 100;
constexpr size_t kTarChecksum = 148;
constexpr size_t kTarType = 156;

bool StartsWith(const std::string& text, const char* beginning) {
  return text.compare(0, strlen(beginning), beginning) == 0;
}

bool IsZip(const std::string& head) {
  return StartsWith(head, "PK\3\4") || StartsWith(head, "PK\5\6");
}

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string BaseOf(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

std::string ReadBeginning(const ByteRange& file) {
  std::string head(static_cast<size_t>(std::min<uint64_t>(kHead, file.length)), '\0');
  const ssize_t size = file ? pread(file.fd(), head.data(), head.size(), static_cast<off_t>(file.base)) : -1;
  head.resize(size > 0 ? static_cast<size_t>(size) : 0);
  return head;
}

/// The beginning of what is compressed, one tar block at most.
std::string InflateBeginning(const std::string& head) {
  std::string block(kTarBlock, '\0');
  z_stream stream = {};
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(head.data()));
  stream.avail_in = static_cast<uInt>(head.size());
  stream.next_out = reinterpret_cast<Bytef*>(block.data());
  stream.avail_out = static_cast<uInt>(block.size());
  if (inflateInit2(&stream, 15 + 16) != Z_OK) {
    return {};
  }
  inflate(&stream, Z_SYNC_FLUSH);
  block.resize(block.size() - stream.avail_out);
  inflateEnd(&stream);
  return block;
}

/// True when the block's sum is the one that it tells, its own digits counted as spaces.
bool IsTarHeader(const std::string& block) {
  if (block.size() < kTarBlock || block[0] == '\0') {
    return false;
  }
  unsigned long sum = 0;
  for (size_t i = 0; i < kTarBlock; ++i) {
    sum += i >= kTarChecksum && i < kTarType ? ' ' : static_cast<unsigned char>(block[i]);
  }
  return strtoul(block.substr(kTarChecksum, kTarType - kTarChecksum).c_str(), nullptr, 8) == sum;
}

bool IsArchiveOfOutput(const std::string& name, const std::string& tarHeader) {
  const std::string first = tarHeader.substr(0, strnlen(tarHeader.c_str(), kTarName));
  const std::string inside = StartsWith(first, "./") ? first.substr(2) : first;
  if (inside.find('/') != std::string::npos || FileNames::outputOfRotated(inside).empty()) {
    return false;
  }
  const std::string base = BaseOf(name);
  // The daemon's headers end with the type, which is zero.
  const bool isDaemons = tarHeader.find_first_not_of('\0', kTarType) >= kTarBlock;
  return isDaemons || !FileNames::outputOfArchive(base).empty() || base == FileNames::kPacked ||
         base == FileNames::kUnfinished;
}

FileForm FormOfHead(const std::string& name, const std::string& head) {
  if (IsZip(head)) {
    return FileForm::kZip;
  }
  if (IsTarHeader(head.substr(0, kTarBlock))) {
    return FileForm::kTar;
  }
  if (!StartsWith(head, "\x1f\x8b\x08")) {
    return FileForm::kOther;
  }
  const std::string block = InflateBeginning(head);
  if (IsTarHeader(block)) {
    return IsArchiveOfOutput(name, block) ? FileForm::kArchive : FileForm::kTar;
  }
  return EndsWith(name, FileNames::kArchiveEnd) ? FileForm::kArchive : FileForm::kGzip;
}

/// The names from a container's top down to an entry. Empty: none that is kept.
SpooledFolder::Way WayOf(const char* path) {
  SpooledFolder::Way way;
  const std::string text = path != nullptr && strlen(path) <= kMostPath ? path : "";
  for (size_t start = 0; start < text.size();) {
    const size_t end = std::min(text.find('/', start), text.size());
    const std::string name = text.substr(start, end - start);
    if (!name.empty() && name != ".") {
      way.push_back(name);
    }
    start = end + 1;
  }
  return way.size() <= kMostDepth ? way : SpooledFolder::Way();
}

/// True when the name alone makes it a file of an output.
bool IsLogName(const SpooledFolder::Way& way) {
  const std::string& name = way.back();
  const bool isPacked = name == FileNames::kPacked || name == FileNames::kUnfinished;
  return !FileNames::parseIndexed(name).output.empty() || !FileNames::outputOfArchive(name).empty() ||
         !FileNames::outputOfRotated(name).empty() ||
         (isPacked && way.size() > 1 && !FileNames::outputOfPackingDirectory(way[way.size() - 2]).empty());
}

ContainerInput::Form InputForm(const std::string& head) {
  using Form = ContainerInput::Form;
  return IsZip(head) ? Form::kZip : StartsWith(head, "\x1f\x8b") ? Form::kGzipTar : Form::kTar;
}

std::string Joined(const SpooledFolder::Way& way) {
  std::string name;
  for (const std::string& part : way) {
    name += (name.empty() ? "" : "/") + part;
  }
  return name;
}

/// What the containers of one pile have cost together.
struct Costs {
  uint64_t entries = 0;
  size_t kept = 0;
  uint64_t texts = 0;
};

/// Reads one container.
class ContainerReader {
 public:
  ContainerReader(Spool& to, Costs& together, const std::string& shown, std::vector<PileDamage>& told, bool isInner)
      : spool(to), costs(together), path(shown), damages(told), inner(isInner) {}
  ContainerReader(const ContainerReader&) = delete;
  ContainerReader& operator=(const ContainerReader&) = delete;

  std::shared_ptr<SpooledFolder> Read(ContainerInput& from);

 private:
  using Way = SpooledFolder::Way;
  enum class Use { kUndecided, kLog, kText, kContainer, kNone };
  struct Nested {
    Way way;
    ByteRange file;
  };
  /// A file of the container while it is read.
  struct Body {
    Body(const Way& to, int64_t time) : way(to), modified(time), use(IsLogName(to) ? Use::kLog : Use::kUndecided) {}
    const Way& way;
    const int64_t modified;
    Use use;
    std::string head;      ///< while undecided
    uint64_t length = 0;   ///< kept
    uint64_t made = 0;     ///< bytes read
    bool isBegun = false;  ///< it has a place in the spool
    bool isOver = false;   ///< no more of it is wanted
    int error = 0;         ///< why nothing of it is kept
  };

  bool ReadEntries(uint64_t skipped);
  bool ReadEntry(archive_entry* entry, const Way& way);
  bool ReadBody(Body& body);
  void Take(Body& body, uint64_t offset, const void* bytes, size_t size);
  void Decide(Body& body);
  bool Begin(Body& body);
  void Keep(Body& body, uint64_t offset, const void* bytes, size_t size);
  void End(Body& body);
  void ReadNested();
  void Say(const std::string& what);
  void SayOf(const Way& way, const std::string& what) { Say(Joined(way) + ": " + what); }
  std::string Why() const;

  Spool& spool;
  Costs& costs;
  const std::string path;
  std::vector<PileDamage>& damages;
  const bool inner;
  ContainerInput* input = nullptr;
  archive* reader = nullptr;
  std::shared_ptr<SpooledFolder> top = std::make_shared<SpooledFolder>();
  std::vector<Nested> nested;
  uint64_t count = 0;  ///< entries begun
  uint64_t made = 0;   ///< bytes of files without holes
  size_t encrypted = 0;
  size_t unnamed = 0;
  size_t messages = 0;
  bool isFull = false;
};

void ContainerReader::Say(const std::string& what) {
  if (++messages <= kMostMessages) {
    damages.push_back({path, what});
  }
}

std::string ContainerReader::Why() const {
  const char* why = archive_error_string(reader);
  return why != nullptr ? why : "unreadable";
}

std::shared_ptr<SpooledFolder> ContainerReader::Read(ContainerInput& from) {
  input = &from;
  bool isBroken = true;
  for (int tries = 0; isBroken && tries <= kMostRestarts; ++tries) {
    const uint64_t before = count;
    count = 0;
    reader = archive_read_new();
    archive_read_support_format_tar(reader);
    archive_read_support_format_zip(reader);
    isBroken = false;
    if (!input->Open(reader)) {
      Say("cannot be read: " + Why());
    } else if (!ReadEntries(before)) {
      isBroken = input->CanSeek() && count > before;  // one damaged file does not take the others along
    }
    archive_read_free(reader);
  }
  ReadNested();
  if (encrypted > 0) {
    Say(std::to_string(encrypted) + " files are encrypted: not read");
  }
  if (unnamed > 0) {
    Say(std::to_string(unnamed) + " names are too long or too deep: not looked at");
  }
  if (messages > kMostMessages) {
    damages.push_back({path, "and " + std::to_string(messages - kMostMessages) + " more"});
  }
  return top;
}

/// False: the reader broke off within an entry.
bool ContainerReader::ReadEntries(uint64_t skipped) {
  while (!isFull) {
    archive_entry* entry = nullptr;
    input->ExpectHeader();
    const int result = archive_read_next_header(reader, &entry);
    if (result == ARCHIVE_EOF) {
      return true;
    }
    if (result < ARCHIVE_WARN) {
      Say("after " + std::to_string(count) + " entries: " + Why() + "; the rest is lost");
      return true;
    }
    input->ExpectData();
    if (++count <= skipped) {
      continue;
    }
    if (++costs.entries > kMostEntries) {
      Say("more than " + std::to_string(kMostEntries) + " entries: the rest is not looked at");
      return true;
    }
    const char* name = archive_entry_pathname(entry);
    if (!ReadEntry(entry, WayOf(name != nullptr ? name : archive_entry_pathname_utf8(entry))) ||
        archive_read_data_skip(reader) == ARCHIVE_FATAL) {
      return false;
    }
  }
  return true;
}

/// False: the reader broke off.
bool ContainerReader::ReadEntry(archive_entry* entry, const Way& way) {
  const char* target = archive_entry_hardlink(entry);
  if (way.empty()) {
    unnamed += archive_entry_filetype(entry) == AE_IFREG ? 1 : 0;
    return true;
  }
  if (target != nullptr) {
    const Way from = WayOf(target);
    costs.kept += !from.empty() && costs.kept < kMostKept && top->Link(from, way) ? 1 : 0;
    return true;
  }
  if (archive_entry_filetype(entry) != AE_IFREG) {
    return true;
  }
  Body body(way, archive_entry_mtime_is_set(entry) != 0 ? archive_entry_mtime(entry) : 0);
  if (archive_entry_is_data_encrypted(entry) != 0) {
    ++encrypted;
    if (body.use == Use::kLog) {
      top->Add(way, {}, body.modified, EPERM);
    }
    return true;
  }
  const bool isWhole = ReadBody(body);
  End(body);
  return isWhole;
}

/// Reads the file as far as it is wanted. False: the reader broke off.
bool ContainerReader::ReadBody(Body& body) {
  const uint64_t before = input->taken();
  while (!body.isOver) {
    const void* bytes = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    const int result = archive_read_data_block(reader, &bytes, &size, &offset);
    if (result == ARCHIVE_EOF) {
      body.length = std::max(body.length, static_cast<uint64_t>(std::max<la_int64_t>(offset, 0)));  // a hole at its end
      return true;
    }
    if (result < ARCHIVE_WARN) {
      SayOf(body.way, "at byte " + std::to_string(body.made) + ": " + Why());
      return result != ARCHIVE_FATAL;
    }
    if (result != ARCHIVE_OK) {
      SayOf(body.way, Why());  // a zip's checksum is wrong
    }
    Take(body, static_cast<uint64_t>(std::max<la_int64_t>(offset, 0)), bytes, size);
    made += size;
    body.made += size;
    const bool explodes = ContainerInput::Explodes(made, input->taken(), ContainerInput::kPileAllowance);
    isFull |= explodes;
    if (explodes || ContainerInput::Explodes(body.made, input->taken() - before, ContainerInput::kFileAllowance)) {
      SayOf(body.way, std::string(ContainerInput::kExplosion) + (explodes ? ", nor what comes after it" : ""));
      return true;
    }
  }
  return true;
}

void ContainerReader::Take(Body& body, uint64_t offset, const void* bytes, size_t size) {
  if (body.use != Use::kUndecided) {
    Keep(body, offset, bytes, size);
  } else if (offset != body.head.size()) {
    body.use = Use::kNone;  // begins with a hole
    body.isOver = true;
  } else {
    body.head.append(static_cast<const char*>(bytes), size);
    if (body.head.size() >= kHead) {
      Decide(body);
    }
  }
}

/// Decides what a file is whose name tells nothing.
void ContainerReader::Decide(Body& body) {
  const std::string& name = body.way.back();
  const std::string& head = body.head;
  if (IsContainer(FormOfHead(name, head))) {
    body.use = inner ? Use::kNone : Use::kContainer;
    if (inner &&
        (EndsWith(name, ".zip") || EndsWith(name, ".tar") || EndsWith(name, ".gz") || EndsWith(name, ".tgz"))) {
      SayOf(body.way, "a container in a container in a container: not looked into");
    }
  } else {
    const bool isText = !head.empty() && head.find('\0') == std::string::npos && head[0] != '\x1f';
    body.use = isText && name[0] != '.' ? Use::kText : Use::kNone;
  }
  body.isOver = body.use == Use::kNone;
  if (!body.isOver) {
    Keep(body, 0, head.data(), head.size());
  }
}

/// Writes bytes of a wanted file to the spool.
void ContainerReader::Keep(Body& body, uint64_t offset, const void* bytes, size_t size) {
  costs.texts += body.use == Use::kText ? size : 0;
  const bool isSpare = costs.texts > kMostTexts && body.use == Use::kText;
  if (!isSpare && Begin(body) && spool.Write(offset, bytes, size)) {
    body.length = std::max(body.length, offset + size);
    return;
  }
  body.isOver = true;
  body.error = ENOSPC;
  // Nothing tells yet whether a text belongs to an output. If it does, opening it will fail.
  if (!isSpare && !isFull) {
    SayOf(body.way, "not kept from byte " + std::to_string(offset) + " on: " + spool.why());
  }
  body.length = isSpare ? 0 : body.length;
}

/// Gives the file a place in the spool. False: there is none.
bool ContainerReader::Begin(Body& body) {
  if (body.isBegun) {
    return true;
  }
  if (costs.kept >= kMostKept) {
    Say("more than " + std::to_string(kMostKept) + " files that may be logs: the rest is left out");
    isFull = true;
    return false;
  }
  ++costs.kept;
  body.isBegun = spool.Begin();
  return body.isBegun;
}

void ContainerReader::End(Body& body) {
  if (body.use == Use::kUndecided) {
    Decide(body);
  }
  if (body.use == Use::kNone) {
    return;
  }
  if (body.error != 0 && body.length == 0) {
    top->Add(body.way, {}, body.modified, body.error);
    return;
  }
  if (!Begin(body)) {
    return;
  }
  const ByteRange range = spool.End(body.length);
  if (range.length < body.length) {
    SayOf(body.way, "cut at byte " + std::to_string(range.length));
  }
  if (body.use == Use::kContainer) {
    nested.push_back({body.way, range});
  } else {
    top->Add(body.way, range, body.modified);
  }
}

void ContainerReader::ReadNested() {
  for (const Nested& container : nested) {
    ContainerInput from(container.file, InputForm(ReadBeginning(container.file)));
    ContainerReader nestedReader(spool, costs, path + '/' + Joined(container.way), damages, true);
    top->Mount(container.way, nestedReader.Read(from));
    spool.Release(container.file);
  }
  nested.clear();
}

/// Reads everything from a stream whose beginning was read.
bool SpoolStream(int fd, const std::string& head, Spool& spool, ByteRange* file) {
  bool isWhole = spool.Begin() && spool.Write(0, head.data(), head.size());
  uint64_t length = isWhole ? head.size() : 0;
  std::string buffer(uint64_t{1} << 18, '\0');
  while (isWhole) {
    const ssize_t size = read(fd, buffer.data(), buffer.size());
    if (size < 0 && errno == EINTR) {
      continue;
    }
    if (size <= 0) {
      isWhole = size == 0;
      break;
    }
    isWhole = spool.Write(length, buffer.data(), static_cast<size_t>(size));
    length += isWhole ? static_cast<uint64_t>(size) : 0;
  }
  *file = length > 0 ? spool.End(length) : ByteRange();
  return isWhole;
}

/// As much of the beginning of a stream as tells what it is.
std::string ReadStreamBeginning(int fd) {
  std::string head(kHead, '\0');
  size_t size = 0;
  for (ssize_t got = 1; got > 0 && size < head.size();) {
    got = read(fd, head.data() + size, head.size() - size);
    size += got > 0 ? static_cast<size_t>(got) : 0;
    got = got < 0 && errno == EINTR ? 1 : got;
  }
  head.resize(size);
  return head;
}

}  // namespace

FileForm FormOf(const std::string& name, const ByteRange& file) {
  return FormOfHead(BaseOf(name), ReadBeginning(file));
}

LogFile::Kind KindOf(const std::string& name, const ByteRange& file) {
  const FileForm form = FormOf(name, file);
  if (form == FileForm::kArchive || (form == FileForm::kOther && EndsWith(name, FileNames::kArchiveEnd))) {
    return LogFile::Kind::kArchive;
  }
  const bool isGzip = form == FileForm::kGzip || (form == FileForm::kOther && EndsWith(name, FileNames::kGzip));
  return isGzip ? LogFile::Kind::kMapped : LogFile::Kind::kPlain;
}

std::shared_ptr<const Folder> Containers::Read(const ByteRange& file, const std::string& path) {
  Costs costs;
  ContainerInput from(file, InputForm(ReadBeginning(file)));
  return ContainerReader(spool, costs, path, damages, false).Read(from);
}

std::shared_ptr<const Folder> Containers::ReadStandardInput(const std::string& path, bool* isContainer) {
  struct stat status = {};
  const off_t position = fstat(0, &status) == 0 && S_ISREG(status.st_mode) ? lseek(0, 0, SEEK_CUR) : -1;
  ByteRange file;
  if (position >= 0) {
    file = {std::make_shared<const OpenFile>(fcntl(0, F_DUPFD_CLOEXEC, 0)), static_cast<uint64_t>(position),
            static_cast<uint64_t>(std::max<off_t>(status.st_size - position, 0))};
  }
  const std::string head = position >= 0 ? ReadBeginning(file) : ReadStreamBeginning(0);
  const FileForm form = FormOfHead(path, head);
  *isContainer = IsContainer(form);
  if (head.empty()) {
    return nullptr;
  }
  if (position < 0 && form == FileForm::kTar) {
    Costs costs;
    ContainerInput from(0, head, InputForm(head));
    return ContainerReader(spool, costs, path, damages, false).Read(from);
  }
  if (position < 0 && !SpoolStream(0, head, spool, &file)) {
    damages.push_back({path, "not read to its end: " + (spool.why().empty() ? strerror(errno) : spool.why())});
  }
  if (*isContainer) {
    return file ? Read(file, path) : nullptr;
  }
  const auto folder = std::make_shared<SpooledFolder>();
  folder->Add({path}, file, status.st_mtime, ENOSPC);
  return folder;
}
