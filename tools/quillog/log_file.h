#ifndef QUILCAT_TOOLS_QUILLOG_LOG_FILE_H_
#define QUILCAT_TOOLS_QUILLOG_LOG_FILE_H_

#include <stdint.h>

#include <memory>
#include <string>

#include "platform/open_file.h"
#include "quillog/time_text.h"

/// One file of an output.
struct LogFile {
  enum class Kind {
    kMapped,   ///< gzip members, "O.I007.20240131-235959.gz"
    kPlain,    ///< text: factory mode's live and rotated files
    kArchive,  ///< five rotated files, "O-0.tar.gz"
  };

  Kind kind = Kind::kPlain;
  std::string path;
  Time started = kNoTime;  ///< the time in the name of a mapped file
  Time modified = kNoTime;
  uint64_t device = 0;
  uint64_t inode = 0;
  std::shared_ptr<const OpenFile> open;  ///< null: it is opened by its path
  bool newest = false;                   ///< of its output: it may be written right now

  /// "/data/log/t/cat.I007.20240131-235959.gz" -> "cat.I007.20240131-235959.gz"
  std::string Name() const { return path.substr(path.rfind('/') + 1); }
};

#endif  // QUILCAT_TOOLS_QUILLOG_LOG_FILE_H_
