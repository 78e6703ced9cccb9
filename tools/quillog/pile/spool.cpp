#include "quillog/pile/spool.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>

namespace {

/// How many bytes are written between two looks at the room that is left.
constexpr uint64_t kCheckInterval = uint64_t{16} << 20;

bool IsZero(const void* bytes, size_t size) {
  const auto* first = static_cast<const char*>(bytes);
  return size > 0 && first[0] == 0 && memcmp(first, first + 1, size - 1) == 0;
}

int MakeIn(const std::string& directory) {
  const int fd = open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (fd >= 0) {
    return fd;
  }
  std::string name = directory + "/quillog.XXXXXX";  // a file system that has no files without names
  const int named = mkostemp(name.data(), O_CLOEXEC);
  if (named >= 0) {
    unlink(name.c_str());
  }
  return named;
}

std::string Gigabytes(uint64_t bytes) {
  return std::to_string(bytes >> 30) + " GiB";
}

}  // namespace

bool Spool::Make() {
  const char* chosen = getenv("TMPDIR");
  for (const char* place : {chosen, "/var/tmp", "/tmp", "/data/local/tmp"}) {
    if (place == nullptr || *place == '\0') {
      continue;
    }
    const int fd = MakeIn(place);
    if (fd >= 0) {
      file = std::make_shared<const OpenFile>(fd);
      directory = place;
      return true;
    }
    reason = "no temporary file in " + std::string(place) + ": " + strerror(errno);
    if (place == chosen) {
      return false;
    }
  }
  return false;
}

bool Spool::Begin() {
  start = end;
  return file != nullptr || Make();
}

bool Spool::HasRoom(uint64_t offset, size_t size) {
  if (offset + size > kMostLength || start + offset + size > kMostLengths) {
    reason = "a file is longer than " + Gigabytes(kMostLength) + ", or all are than " + Gigabytes(kMostLengths);
    return false;
  }
  if (used + size > kMostBytes) {
    reason = "more than " + Gigabytes(kMostBytes) + " of logs in containers";
    return false;
  }
  if (used == 0 || used - checkedAt >= kCheckInterval) {
    struct statvfs room = {};
    checkedAt = used;
    if (fstatvfs(file->fd, &room) == 0 && uint64_t{room.f_bavail} * room.f_frsize < kFreeLeft + kCheckInterval) {
      reason = "no room for a temporary file in " + directory;
      return false;
    }
  }
  return true;
}

bool Spool::Write(uint64_t offset, const void* bytes, size_t size) {
  if (!HasRoom(offset, size)) {
    return false;
  }
  used += size;
  end = std::max(end, start + offset + size);
  const auto* next = static_cast<const char*>(bytes);
  for (size_t left = IsZero(bytes, size) ? 0 : size; left > 0;) {
    const ssize_t written =
        pwrite(file->fd, next + (size - left), left, static_cast<off_t>(start + offset + size - left));
    if (written < 0 && errno != EINTR) {
      reason = "temporary file in " + directory + ": " + strerror(errno);
      return false;
    }
    left -= written > 0 ? static_cast<size_t>(written) : 0;
  }
  return true;
}

ByteRange Spool::End(uint64_t length) {
  length = std::min({length, kMostLength, kMostLengths - start});
  end = std::max(end, start + length);
  if (ftruncate(file->fd, static_cast<off_t>(end)) != 0) {
    end = static_cast<uint64_t>(lseek(file->fd, 0, SEEK_END));
    length = std::min(length, end - start);
  }
  return {file, start, length};
}

void Spool::Release(const ByteRange& range) {
  fallocate(range.fd(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(range.base),
            static_cast<off_t>(range.length));
  used -= std::min(used, range.length);
  checkedAt = std::min(checkedAt, used);
}
