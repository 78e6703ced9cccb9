#include "mmaplog/log_mmap.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "mmaplog/log_format.h"

using LogFormat::kSegmentSize;

namespace {

void Unmap(uint8_t* segment) {
  if (munmap(segment, kSegmentSize) != 0) {
    fprintf(stderr, "failed unmapping data\n");
  }
}

}  // namespace

LogMmap::LogMmap(const char* path) {
  openMmapFile(path);
}

LogMmap::~LogMmap() {
  ReleaseSegment();
  CloseFile();
}

bool LogMmap::isMmapOpenSucc() const {
  return segment != nullptr && fd >= 0;
}

void LogMmap::openMmapFile(const char* path) {
  if (path == nullptr) {
    return;
  }
  fd = open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0700);
  if (fd < 0) {
    fprintf(stderr, "failed opening file\n");
  }
  if (!mmap_file()) {
    fprintf(stderr, "failed mmap file\n");
  }
}

/// Grows the file by one segment and maps that segment in place of the current one. False: all is as it was.
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
    return false;
  }
  if (!FillSegment(offset)) {
    Unmap(static_cast<uint8_t*>(mapped));
    UndoExtension();
    return false;
  }
  if (segment != nullptr) {
    Unmap(segment);
  }
  segment = static_cast<uint8_t*>(mapped);
  return true;
}

/// Writes zeros over the segment at `offset`, so that its blocks exist: a store into a mapped hole of a full disk would
/// end the process with SIGBUS. Before any data is copied there.
bool LogMmap::FillSegment(uint64_t offset) {
  static uint8_t zeros[kSegmentSize];
  return pwrite(fd, zeros, sizeof zeros, static_cast<off_t>(offset)) == static_cast<ssize_t>(sizeof zeros);
}

void LogMmap::UndoExtension() {
  reservedSize -= kSegmentSize;
  Shorten(reservedSize);
}

/// Cuts the file. A failure leaves zeros behind the text, which do no harm.
void LogMmap::Shorten(uint64_t size) const {
  if (ftruncate(fd, static_cast<off_t>(size)) != 0) {
    return;
  }
}

bool LogMmap::Write(const void* data, size_t len) {
  if (data == nullptr || len < 1 || len > kSegmentSize) {
    return false;
  }
  if (segment == nullptr && !mmap_file()) {
    return false;
  }
  const auto* bytes = static_cast<const uint8_t*>(data);
  const size_t position = writtenSize % kSegmentSize;
  const size_t room = kSegmentSize - position;
  if (len < room) {
    memcpy(segment + position, bytes, len);
    writtenSize += len;
    return true;
  }
  memcpy(segment + position, bytes, room);
  // A segment that is full is followed at once, so that the next write finds a fresh one.
  if (!mmap_file()) {
    memset(segment + position, 0, room);
    return false;
  }
  memcpy(segment, bytes + room, len - room);
  writtenSize += len;
  return true;
}

void LogMmap::ReleaseSegment() {
  if (segment != nullptr) {
    Unmap(segment);
    segment = nullptr;
  }
}

void LogMmap::CloseFile() {
  if (fd < 0) {
    return;
  }
  Shorten(writtenSize);
  close(fd);
  fd = -1;
}
