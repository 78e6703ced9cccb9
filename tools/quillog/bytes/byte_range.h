#ifndef QUILCAT_TOOLS_QUILLOG_BYTES_BYTE_RANGE_H_
#define QUILCAT_TOOLS_QUILLOG_BYTES_BYTE_RANGE_H_

#include <stdint.h>

#include <memory>

#include "platform/open_file.h"

/// Bytes to read: a part of an open file, which copies share. Read with pread() only: other parts of the same
/// descriptor are other files.
struct ByteRange {
  static constexpr uint64_t kToTheEnd = UINT64_MAX;

  std::shared_ptr<const OpenFile> file;  ///< null: nothing is open
  uint64_t base = 0;                     ///< offset in the file of the first byte
  uint64_t length = kToTheEnd;           ///< kToTheEnd: up to the file's end, which may move

  explicit operator bool() const { return file != nullptr; }
  int fd() const { return file->fd; }
};

#endif  // QUILCAT_TOOLS_QUILLOG_BYTES_BYTE_RANGE_H_
