#include "mmaplog/log_mmap.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "mmaplog/log_format.h"
#include "mmaplog/segment_copy.h"

using LogFormat::kSegmentSize;
using LogFormat::kSmallestPage;

namespace {

void Unmap(uint8_t* segment) {
  if (segment != nullptr && munmap(segment, kSegmentSize) != 0) {
    fprintf(stderr, "failed unmapping data\n");
  }
}

}  // namespace

LogMmap::LogMmap(const char* path) {
  openMmapFile(path);
}

LogMmap::~LogMmap() {
  const int finished = Finish();
  if (finished >= 0) {
    close(finished);
  }
}

bool LogMmap::isMmapOpenSucc() const {
  return segment != nullptr && fd >= 0;
}

void LogMmap::openMmapFile(const char* path) {
  if (path == nullptr) {
    return;
  }
  fd = open(path, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0700);
  if (fd < 0) {
    fprintf(stderr, "failed opening file\n");
  } else {
    flock(fd, LOCK_SH | LOCK_NB);  // tells other starts, until the file is closed, that its writer lives
  }
  struct stat status;
  hadName = fd >= 0 && fstat(fd, &status) == 0 && status.st_nlink > 0;
  if (!mmap_file()) {
    fprintf(stderr, "failed mmap file\n");
  }
}

/// Grows the file by one segment and maps that segment in place of the current one, whose mapping is left to the
/// caller. False: the segment is as it was, and so is the file, or it is lost.
bool LogMmap::mmap_file() {
  if (fd < 0) {
    return false;
  }
  const uint64_t offset = reservedSize;
  reservedSize += kSegmentSize;
  if (ftruncate(fd, static_cast<off_t>(reservedSize)) != 0) {
    fprintf(stderr, "failed setting file size\n");
    reservedSize = offset;
    return false;
  }
  // Offsets are signed 32-bit numbers: a file ends at 2 GiB.
  void* mapped = MAP_FAILED;
  if (offset <= INT32_MAX) {
    mapped = mmap(nullptr, kSegmentSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, static_cast<off_t>(offset));
  }
  if (mapped == MAP_FAILED) {
    fprintf(stderr, "failed mapping data\n");
    UndoExtension();
    full = offset > INT32_MAX;
    return false;
  }
  if (!FillSegment(offset)) {
    Unmap(static_cast<uint8_t*>(mapped));
    UndoExtension();
    return false;
  }
  segment = static_cast<uint8_t*>(mapped);
  return true;
}

/// Tells whether the file has the length that this object gave it, and a name; anything else is the work of somebody
/// else.
bool LogMmap::IsOwn() const {
  struct stat status;
  return fstat(fd, &status) == 0 && status.st_size == static_cast<off_t>(reservedSize) &&
         (status.st_nlink > 0 || !hadName);
}

/// Writes zeros over the segment at `offset`, so that its blocks exist: a store into a mapped hole of a full disk would
/// end the process with SIGBUS. Before any data is copied there. A page a write: of a larger one the kernel may make
/// one piece of its cache, and for each byte stored there later it would write all of that to disk.
bool LogMmap::FillSegment(uint64_t offset) {
  static uint8_t zeros[kSmallestPage];
  for (uint64_t at = offset; at < offset + kSegmentSize; at += sizeof zeros) {
    if (pwrite(fd, zeros, sizeof zeros, static_cast<off_t>(at)) != static_cast<ssize_t>(sizeof zeros)) {
      return false;
    }
  }
  return true;
}

/// A file that does not let itself be cut is given up: its length tells nothing any more.
void LogMmap::UndoExtension() {
  reservedSize -= kSegmentSize;
  lost = ftruncate(fd, static_cast<off_t>(reservedSize)) != 0;
}

bool LogMmap::Write(const void* data, size_t len) {
  if (data == nullptr || len < 1 || len > kSegmentSize || isOver()) {
    return false;
  }
  // Bytes after a cut inside the last page would go nowhere, and raise no fault.
  lost = fd >= 0 && !IsOwn();
  if (lost) {
    return false;
  }
  if (segment == nullptr && !mmap_file()) {
    return false;
  }
  const auto* bytes = static_cast<const uint8_t*>(data);
  const size_t position = writtenSize % kSegmentSize;
  const size_t room = kSegmentSize - position;
  if (len >= room) {
    return WriteAcrossSegments(bytes, len, room);
  }
  lost = !openPages(segment, position, len) || !copyToSegment(segment, position, bytes, len);
  if (lost) {
    return false;
  }
  writtenSize += len;
  return true;
}

/// Fills the `room` left in the segment and goes on in the next one, which a segment that is just full is given at
/// once. The next one is mapped, and the pages of both are open, before anything is copied: what remains between the
/// two halves, in which a kill would break the bytes in two, is two copies.
bool LogMmap::WriteAcrossSegments(const uint8_t* bytes, size_t len, size_t room) {
  uint8_t* const filled = segment;
  if (!mmap_file()) {
    return false;
  }
  const size_t position = kSegmentSize - room;
  const size_t rest = len - room;
  lost = !openPages(filled, position, room) || !openPages(segment, 0, rest) ||
         !copyToSegment(filled, position, bytes, room) || !copyToSegment(segment, 0, bytes + room, rest);
  Unmap(filled);
  if (lost) {
    return false;
  }
  writtenSize += len;
  return true;
}

int LogMmap::Finish() {
  Unmap(std::exchange(segment, nullptr));
  // A failure leaves zeros after the text, which do no harm.
  if (fd >= 0 && !lost && IsOwn() && ftruncate(fd, static_cast<off_t>(writtenSize)) != 0) {
    lost = true;
  }
  return std::exchange(fd, -1);
}
