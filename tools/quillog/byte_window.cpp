#include "quillog/byte_window.h"

#include <errno.h>
#include <string.h>

#include <algorithm>

#include "platform/seek.h"

const uint8_t* ByteWindow::At(uint64_t offset, size_t wanted, size_t* available) {
  const bool inside = offset >= start && offset < start + size;
  if (!inside || start + size - offset < wanted) {
    const size_t kept = inside ? static_cast<size_t>(start + size - offset) : 0;
    if (kept > 0) {
      memmove(buffer.get(), buffer.get() + (offset - start), kept);
    }
    start = offset;
    size = kept;
    while (size < kSize) {
      const ssize_t got = pread(fd, buffer.get() + size, kSize - size, static_cast<off_t>(start + size));
      if (got < 0 && errno == EINTR) {
        continue;
      }
      failed |= got < 0;
      if (got <= 0) {
        break;
      }
      size += static_cast<size_t>(got);
    }
  }
  *available = static_cast<size_t>(start + size - offset);
  return buffer.get() + (offset - start);
}

uint64_t ByteWindow::EndOfZeros(uint64_t offset) {
  for (;;) {
    offset = SkipHole(offset);
    size_t available = 0;
    const uint8_t* bytes = At(offset, 1, &available);
    if (available == 0) {
      return offset;
    }
    // All zero exactly when the first is and each equals its neighbour: one fast comparison.
    if (bytes[0] == 0 && memcmp(bytes, bytes + 1, available - 1) == 0) {
      offset += available;
      continue;
    }
    const uint8_t* found = std::find_if(bytes, bytes + available, [](uint8_t byte) { return byte != 0; });
    return offset + static_cast<uint64_t>(found - bytes);
  }
}

uint64_t ByteWindow::Find(const uint8_t* pattern, size_t length, uint64_t offset) {
  for (;;) {
    offset = SkipHole(offset);
    size_t available = 0;
    const uint8_t* bytes = At(offset, length, &available);
    const void* found = memmem(bytes, available, pattern, length);
    if (found != nullptr) {
      return offset + static_cast<uint64_t>(static_cast<const uint8_t*>(found) - bytes);
    }
    if (available < length) {
      return offset + available;
    }
    offset += available - (length - 1);
  }
}

bool ByteWindow::IsEnd(uint64_t offset) {
  size_t available = 0;
  At(offset, 1, &available);
  return available == 0;
}

uint64_t ByteWindow::SkipHole(uint64_t offset) const {
  if (offset >= start && offset < start + size) {
    return offset;
  }
  const off_t data = lseek(fd, static_cast<off_t>(offset), SEEK_DATA);
  if (data >= 0) {
    return static_cast<uint64_t>(data);
  }
  // Nothing but a hole up to the end, or the file system does not tell.
  return errno == ENXIO ? std::max(offset, End()) : offset;
}

uint64_t ByteWindow::End() const {
  const off_t end = lseek(fd, 0, SEEK_END);
  return end < 0 ? 0 : static_cast<uint64_t>(end);
}
