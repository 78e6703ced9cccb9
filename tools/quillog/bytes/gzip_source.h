#ifndef QUILCAT_TOOLS_QUILLOG_BYTES_GZIP_SOURCE_H_
#define QUILCAT_TOOLS_QUILLOG_BYTES_GZIP_SOURCE_H_

#include <zlib.h>

#include <memory>

#include "quillog/bytes/byte_window.h"

/// The decompressed bytes of one gzip member of any length, with any number of passes over it.
class GzipSource {
 public:
  enum class Verdict {
    kWhole,          ///< checksum and length are right
    kCutShort,       ///< the bytes end before the member does; what they give is the beginning of what was written
    kContradiction,  ///< some bytes are not the writer's
  };

  /// The member that begins at that offset.
  explicit GzipSource(const ByteRange& bytes, uint64_t from = 0);
  ~GzipSource();
  GzipSource(const GzipSource&) = delete;
  GzipSource& operator=(const GzipSource&) = delete;

  /// Reads all of it and begins a pass.
  Verdict Check();
  /// Begins a pass.
  void Rewind();
  /// The next bytes of the pass, valid until the next call of it or of Skip() beyond them: at least `wanted` unless
  /// what can be decoded ends before. `available` is set to their number, which may be larger.
  static constexpr size_t kMostWanted = 16384;
  const uint8_t* Peek(size_t wanted, size_t* available);
  /// Passes over bytes, as far as there are any.
  void Skip(uint64_t size);
  /// Of the next byte, in what is decoded.
  uint64_t place() const { return at; }

  /// Makes later passes stop where the written bytes end: at the first 512 zeros, a sector, or at zeros that reach to
  /// the end of the file.
  void StopAtZeros();
  /// Offset of the first byte that later passes do not use.
  uint64_t limit() const { return end; }
  /// Offset of the first byte after the member, after a Check() that found it whole.
  uint64_t memberEnd() const { return checkedEnd; }
  uint64_t fileEnd() const { return window.End(); }

 private:
  ByteWindow window;
  z_stream stream = {};
  const std::unique_ptr<uint8_t[]> output;
  size_t next = 0;  ///< in `output`
  size_t size = 0;
  uint64_t at = 0;
  const uint64_t begin;
  uint64_t position;
  uint64_t end = UINT64_MAX;
  uint64_t checkedEnd = 0;
  int result = Z_OK;
};

#endif  // QUILCAT_TOOLS_QUILLOG_BYTES_GZIP_SOURCE_H_
