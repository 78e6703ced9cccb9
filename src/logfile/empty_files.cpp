#include "logfile/empty_files.h"

#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "logfile/file_steps.h"
#include "platform/open_file.h"

namespace {

/// All of it is looked at: after a power cut text may follow zeros.
bool HoldsZerosOnly(int fd) {
  static constexpr char kZeros[4096] = {};
  char piece[sizeof kZeros];
  ssize_t length;
  do {
    length = read(fd, piece, sizeof piece);
  } while (length > 0 && memcmp(piece, kZeros, static_cast<size_t>(length)) == 0);
  return length == 0;
}

}  // namespace

void removeEmptyFiles(IndexedFiles* files) {
  while (!files->paths().empty()) {
    const std::string newest = files->paths().back();
    const OpenFile file(open(newest.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    // A writer holds a lock of its own on its file, which ends with its process. This one keeps writers away.
    if (file.fd < 0 || flock(file.fd, LOCK_EX | LOCK_NB) != 0 || !HoldsZerosOnly(file.fd)) {
      return;
    }
    unlinkFile(newest);
    files->dropNewest();
  }
}
