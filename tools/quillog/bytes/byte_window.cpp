#include "quillog/bytes/byte_window.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

const uint8_t* ByteWindow::At(uint64_t offset, size_t wanted, size_t* available) {
  const bool inside = offset >= start && offset < start + size;
  if (!inside || start + size - offset < wanted) {
    const size_t kept = inside ? static_cast<size_t>(start + size - offset) : 0;
    if (kept > 0) {
      memmove(buffer.get(), buffer.get() + (offset - start), kept);
    }
    start = offset;
    size = kept;
    const uint64_t rest = range.length - std::min(range.length, offset);
    const size_t most = static_cast<size_t>(std::min<uint64_t>(kSize, rest));
    while (size < most) {
      const ssize_t got =
          pread(range.fd(), buffer.get() + size, most - size, static_cast<off_t>(range.base + start + size));
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
#ifdef SEEK_DATA
  if (offset >= start && offset < start + size) {
    return offset;
  }
  const off_t data = lseek(range.fd(), static_cast<off_t>(range.base + offset), SEEK_DATA);
  if (data >= 0) {
    return std::min(static_cast<uint64_t>(data) - range.base, std::max(offset, range.length));
  }
  // Nothing but a hole up to the end, or the file system does not tell.
  return errno == ENXIO ? std::max(offset, End()) : offset;
#else
  return offset;
#endif
}

uint64_t ByteWindow::End() const {
  const off_t end = lseek(range.fd(), 0, SEEK_END);
  const uint64_t fileEnd = end < 0 ? 0 : static_cast<uint64_t>(end);
  return std::min(range.length, fileEnd - std::min(fileEnd, range.base));
}
