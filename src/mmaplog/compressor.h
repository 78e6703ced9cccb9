#ifndef QUILCAT_MMAPLOG_COMPRESSOR_H_
#define QUILCAT_MMAPLOG_COMPRESSOR_H_

#include <stddef.h>
#include <stdint.h>

/// Makes gzip members (RFC 1952) of text. The build chooses by what: zlib's deflate (compressor_zlib.cpp), or
/// libdeflate (compressor_libdeflate.cpp), which takes half the CPU and some more memory for slightly smaller members.
/// All members begin with the same ten bytes.
///
/// Not thread-safe.
class Compressor {
 public:
  Compressor() = default;
  ~Compressor();
  Compressor(const Compressor&) = delete;
  Compressor& operator=(const Compressor&) = delete;

  /// Allocates all the memory that it takes; nothing when that was done. False: there is none now.
  bool SetUp();
  bool isSetUp() const { return state != nullptr; }

  /// Makes one member of `size` bytes of text, at least 1, at `member`, where there are `room` bytes, at most 65536.
  /// Returns its length, or 0: it has no room, and what is at `member` then is nothing. After SetUp().
  size_t Compress(const uint8_t* text, size_t size, uint8_t* member, size_t room);

 private:
  void* state = nullptr;  ///< of the library
};

#endif  // QUILCAT_MMAPLOG_COMPRESSOR_H_
