#ifndef QUILCAT_TOOLS_QUILLOG_GZIP_SOURCE_H_
#define QUILCAT_TOOLS_QUILLOG_GZIP_SOURCE_H_

#include <zlib.h>

#include <vector>

#include "quillog/bytes/byte_window.h"

/// The decompressed bytes of a file that is one gzip member of any length, with any number of passes over it.
class GzipSource {
 public:
  enum class Verdict {
    kWhole,          ///< checksum and length are right
    kCutShort,       ///< the bytes end before the member does; what they give is the beginning of what was written
    kContradiction,  ///< some bytes are not the writer's
  };

  /// Borrows the descriptor.
  explicit GzipSource(const ByteRange& file);
  uint64_t Size() const { return window.End(); }
  ~GzipSource();
  GzipSource(const GzipSource&) = delete;
  GzipSource& operator=(const GzipSource&) = delete;

  /// Begins a pass.
  void Rewind();
  /// The next bytes, valid until the next call. 0 at the end of what can be decoded.
  size_t Next(const void** bytes);
  /// Reads on to the end of the pass.
  Verdict Drain();

  /// Makes later passes stop where the written bytes end: at the first 512 zeros, a sector, or at zeros that reach to
  /// the end of the file.
  void StopAtZeros();
  /// Offset of the first byte that later passes do not use.
  uint64_t limit() const { return end; }

 private:
  ByteWindow window;
  z_stream stream = {};
  std::vector<uint8_t> output;
  uint64_t position = 0;
  uint64_t end = UINT64_MAX;
  int result = Z_OK;
};

#endif  // QUILCAT_TOOLS_QUILLOG_GZIP_SOURCE_H_
