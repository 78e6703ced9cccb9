#ifndef QUILCAT_PLATFORM_OPEN_FILE_H_
#define QUILCAT_PLATFORM_OPEN_FILE_H_

#include <unistd.h>

/// A descriptor that is closed with its owner; -1: none.
class OpenFile {
 public:
  explicit OpenFile(int file) : fd(file) {}
  ~OpenFile() { Reset(-1); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  /// Closes what it has and takes `file`.
  void Reset(int file) {
    if (fd >= 0) {
      close(fd);
    }
    fd = file;
  }

  int fd;
};

#endif  // QUILCAT_PLATFORM_OPEN_FILE_H_
