#ifndef QUILCAT_MMAPLOG_LOG_FORMAT_H_
#define QUILCAT_MMAPLOG_LOG_FORMAT_H_

#include <stdint.h>

/// Layout of a compressed mapped log file: gzip members (RFC 1952) one after the other, each the text of one block,
/// without header fields; while the file is open, zero bytes from the last member to the end of the segment.
namespace LogFormat {

/// The file grows by segments of this many bytes, each at a multiple of it.
constexpr uint32_t kSegmentSize = 65536;

/// The system's pages are this large or, where they are larger, a multiple of it; a segment is a number of them.
constexpr uint32_t kSmallestPage = 4096;

/// Size of the area that collects text, and of the one that takes its compressed form.
constexpr uint32_t kBlockArea = 65536;

/// A block is cut when at least this much text is pending: 80 % of its area, so that a write of up to 13108 bytes
/// always fits.
constexpr uint32_t kBlockThreshold = 52429;

constexpr int kDeflateLevel = 9;          ///< of zlib
constexpr int kGzipWindowBits = 15 + 16;  ///< 16 selects the gzip wrapper
constexpr int kDeflateMemLevel = 8;

}  // namespace LogFormat

#endif  // QUILCAT_MMAPLOG_LOG_FORMAT_H_
