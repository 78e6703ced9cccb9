#include "logfile/empty_files.h"

#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "logfile/file_steps.h"

namespace {

/// A file that no writer has open, nor will have while this object lives.
class AbandonedFile {
 public:
  explicit AbandonedFile(const std::string& path)
      : fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)) {
    // A writer holds a lock of its own on its file, which ends with its process.
    abandoned = fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0;
  }
  ~AbandonedFile() {
    if (fd >= 0) {
      close(fd);
    }
  }
  AbandonedFile(const AbandonedFile&) = delete;
  AbandonedFile& operator=(const AbandonedFile&) = delete;

  /// All of it is looked at: after a power cut text may follow zeros.
  bool isEmpty() const {
    static constexpr char kZeros[4096] = {};
    char piece[sizeof kZeros];
    ssize_t length = abandoned ? read(fd, piece, sizeof piece) : -1;
    while (length > 0 && memcmp(piece, kZeros, static_cast<size_t>(length)) == 0) {
      length = read(fd, piece, sizeof piece);
    }
    return length == 0;
  }

 private:
  const int fd;
  bool abandoned = false;
};

}  // namespace

void removeEmptyFiles(IndexedFiles* files) {
  while (!files->paths().empty()) {
    const std::string newest = files->paths().back();
    const AbandonedFile file(newest);
    if (!file.isEmpty()) {
      return;
    }
    unlinkFile(newest);
    files->dropNewest();
  }
}
