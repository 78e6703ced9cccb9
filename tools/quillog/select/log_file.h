#ifndef QUILCAT_TOOLS_QUILLOG_SELECT_LOG_FILE_H_
#define QUILCAT_TOOLS_QUILLOG_SELECT_LOG_FILE_H_

#include <stdint.h>

#include <string>

#include "quillog/bytes/byte_range.h"
#include "quillog/bytes/file_reader.h"
#include "quillog/time/time_text.h"

/// One file of an output.
struct LogFile {
  using Kind = FileKind;

  /// Opens it. Nothing: it cannot be opened, or is no regular file (errno: 0).
  ByteRange Open() const;

  /// "/data/log/t/cat.I007.20240131-235959.gz" -> "cat.I007.20240131-235959.gz"
  std::string Name() const { return path.substr(path.rfind('/') + 1); }

  Kind kind = Kind::kPlain;
  std::string path;
  Time started = kNoTime;  ///< the time in the name of a mapped file
  Time modified = kNoTime;
  uint64_t device = 0;
  uint64_t inode = 0;
  ByteRange held;       ///< nothing: it is opened by its path
  bool newest = false;  ///< of its output: it may be written right now
};

#endif  // QUILCAT_TOOLS_QUILLOG_SELECT_LOG_FILE_H_
