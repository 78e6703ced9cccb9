#ifndef QUILCAT_TOOLS_QUILLOG_BYTES_BYTE_WINDOW_H_
#define QUILCAT_TOOLS_QUILLOG_BYTES_BYTE_WINDOW_H_

#include <stddef.h>
#include <stdint.h>

#include <memory>

#include "quillog/bytes/byte_range.h"

/// Bytes of any number seen through 256 KiB of memory. Other processes may write to them.
class ByteWindow {
 public:
  static constexpr size_t kSize = 262144;

  explicit ByteWindow(const ByteRange& bytes) : range(bytes), buffer(new uint8_t[kSize]) {}

  /// The bytes at `offset`, valid until the next call: at least `wanted` (at most kSize) unless the range ends before.
  /// `available` is set to their number, which may be larger. A failed read counts as the end and shows in Failed().
  const uint8_t* At(uint64_t offset, size_t wanted, size_t* available);

  /// Forgets what was read: the bytes may have changed.
  void Forget() { size = 0; }

  /// The offset of the first byte from `offset` on that is not zero; the end when there is none. Holes of a sparse file
  /// are passed over without reading them.
  uint64_t EndOfZeros(uint64_t offset);

  /// The offset at which `pattern`, which does not begin with a zero, is found first from `offset` on; the end when it
  /// is not.
  uint64_t Find(const uint8_t* pattern, size_t length, uint64_t offset);

  /// True when `offset` is at or past the end.
  bool IsEnd(uint64_t offset);
  /// The number of bytes that there are now.
  uint64_t End() const;
  bool Failed() const { return failed; }

 private:
  uint64_t SkipHole(uint64_t offset) const;

  const ByteRange range;
  const std::unique_ptr<uint8_t[]> buffer;  // not cleared: most of it is never touched where files are small
  uint64_t start = 0;                       ///< offset of the buffer's first byte
  size_t size = 0;                          ///< bytes in the buffer
  bool failed = false;
};

#endif  // QUILCAT_TOOLS_QUILLOG_BYTES_BYTE_WINDOW_H_
