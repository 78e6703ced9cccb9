#ifndef QUILCAT_TOOLS_QUILLOG_PILE_SPOOL_H_
#define QUILCAT_TOOLS_QUILLOG_PILE_SPOOL_H_

#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <string>

#include "quillog/bytes/byte_range.h"

/// Files of containers, one after the other in one temporary file that has no name and goes with the process. It lies
/// in $TMPDIR, or in the first of /var/tmp, /tmp and /data/local/tmp where it can be made. One file is written at a
/// time.
class Spool {
 public:
  static constexpr uint64_t kMostBytes = uint64_t{4} << 30;       ///< of all files, holes left out
  static constexpr uint64_t kMostLength = uint64_t{16} << 30;     ///< of one file with its holes
  static constexpr uint64_t kMostLengths = uint64_t{1024} << 30;  ///< of all files with their holes
  static constexpr uint64_t kFreeLeft = uint64_t{64} << 20;       ///< stays free in the file system

  /// Begins a file. False: no temporary file can be made; why() tells.
  bool Begin();
  /// Writes bytes of it at that offset: what was left out reads as zeros, and zeros take no room. False: there is no
  /// room for them; why() tells.
  bool Write(uint64_t offset, const void* bytes, size_t size);
  /// Ends it, cut or with a hole up to `length`.
  ByteRange End(uint64_t length);
  /// Gives up an ended file, whose bytes nobody reads any more.
  void Release(const ByteRange& range);

  const std::string& why() const { return reason; }

 private:
  bool Make();
  bool HasRoom(uint64_t offset, size_t size);

  std::shared_ptr<const OpenFile> file;
  std::string directory;
  std::string reason;
  uint64_t start = 0;  ///< of the file that is written
  uint64_t end = 0;    ///< of its bytes so far
  uint64_t used = 0;   ///< bytes of all files
  uint64_t checkedAt = 0;
};

#endif  // QUILCAT_TOOLS_QUILLOG_PILE_SPOOL_H_
