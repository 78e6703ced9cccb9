#include "logfile/live_file.h"

#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t kCreateMode = 0640;
constexpr off_t kPiece = 4096;

int Open(const char* path) {
  // Appending too, whatever another process does with the file.
  return open(path, O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kCreateMode);
}

/// A file that no other name leads to.
bool IsOwn(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_nlink == 1;
}

/// The offset behind the last byte of the file that is not zero.
off_t EndOfText(int fd, off_t size) {
  static constexpr char kZeros[kPiece] = {};
  char piece[kPiece];
  while (size > 0) {
    const off_t start = (size - 1) / kPiece * kPiece;
    const auto length = static_cast<size_t>(size - start);
    if (pread(fd, piece, length, start) != static_cast<ssize_t>(length)) {
      return size;
    }
    if (memcmp(piece, kZeros, length) != 0) {
      const char* end = piece + length;
      while (end[-1] == '\0') {
        --end;
      }
      return start + (end - piece);
    }
    size = start;
  }
  return 0;
}

}  // namespace

int openLiveFile(const char* path) {
  struct stat status;
  if (lstat(path, &status) == 0 && !S_ISDIR(status.st_mode) && !IsOwn(status)) {
    unlink(path);
  }
  const int fd = Open(path);
  if (fd < 0) {
    return -1;
  }
  if (fstat(fd, &status) != 0 || !IsOwn(status)) {
    close(fd);
    return -1;
  }
  const off_t end = EndOfText(fd, status.st_size);
  if (end < status.st_size) {
    const int ignored = ftruncate(fd, end);  // else text goes behind the zeros, which a reader passes over
    static_cast<void>(ignored);
  }
  return fd;
}
