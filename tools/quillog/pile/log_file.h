#ifndef QUILCAT_TOOLS_QUILLOG_PILE_LOG_FILE_H_
#define QUILCAT_TOOLS_QUILLOG_PILE_LOG_FILE_H_

#include <stdint.h>

#include <memory>
#include <string>

#include "quillog/bytes/file_reader.h"
#include "quillog/pile/folder.h"
#include "quillog/time/time_text.h"

/// One file of an output.
struct LogFile {
  using Kind = FileKind;

  /// Opens it, even if a rotation has renamed it since it was listed. Nothing: it cannot be opened (errno); ENOENT
  /// where it was deleted meanwhile.
  ByteRange Open() const;

  /// "/data/log/t/cat.I007.20240131-235959.gz" -> "cat.I007.20240131-235959.gz"
  std::string Name() const { return path.substr(path.rfind('/') + 1); }

  Kind kind = Kind::kPlain;
  std::string path;                      ///< as shown: the pile's path and the name inside
  std::shared_ptr<const Folder> folder;  ///< where it lies, under Name()
  Time started = kNoTime;                ///< the time in the name of a mapped file
  Time modified = kNoTime;
  uint64_t size = 0;  ///< when it was listed
  uint64_t device = 0;
  uint64_t inode = 0;   ///< 0: it comes from a container
  ByteRange held;       ///< nothing, or what OutputFiles::Hold() opened
  bool newest = false;  ///< of its output: it may be written right now
};

#endif  // QUILCAT_TOOLS_QUILLOG_PILE_LOG_FILE_H_
