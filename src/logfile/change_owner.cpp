#include "logfile/change_owner.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "safestr/safestr.h"
#include "thread/interruptible.h"

namespace {

constexpr size_t kMessageSize = PATH_MAX + 64;
constexpr mode_t kWritableByOthers = 022;

/// Keeps everybody else from renaming, deleting and making files in a directory. The kernel looks at the mode and
/// changes the directory in one step, so that none is under way when this stands.
class ClosedDirectory {
 public:
  /// Takes the rights to write to `path`, but not of a directory that a link leads to, nor of one that is not the
  /// process's own or that others share, as /tmp. Opened as a path only: whoever watches the directory for openings is
  /// not woken.
  explicit ClosedDirectory(const std::string& path)
      : fd(open(path.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {
    struct stat status;
    if (fd >= 0 && fstat(fd, &status) == 0 && status.st_uid == geteuid() && (status.st_mode & S_ISVTX) == 0 &&
        (status.st_mode & kWritableByOthers) != 0) {
      mode = status.st_mode & 07777;
      SetMode(mode & ~kWritableByOthers);
    }
  }
  /// Gives them back.
  ~ClosedDirectory() {
    if (mode != 0) {
      SetMode(mode);
    }
    if (fd >= 0) {
      close(fd);
    }
  }
  ClosedDirectory(const ClosedDirectory&) = delete;
  ClosedDirectory& operator=(const ClosedDirectory&) = delete;

 private:
  /// A failure leaves the directory as it is.
  void SetMode(mode_t bits) const { chmod(("/proc/self/fd/" + std::to_string(fd)).c_str(), bits); }

  const int fd;
  mode_t mode = 0;  ///< to be restored; 0: nothing was taken
};

/// True when `path`, taken as it is, and `file` are the same file. Async-signal-safe.
bool IsSameFile(const char* path, int file) {
  struct stat named;
  struct stat opened;
  return lstat(path, &named) == 0 && fstat(file, &opened) == 0 && named.st_dev == opened.st_dev &&
         named.st_ino == opened.st_ino;
}

/// The child of a process with many threads: only async-signal-safe calls from here on.
[[noreturn]] void RunChown(char* path, int file, const char* message, size_t messageLength) {
  // What the daemon ignores has its usual effect on a command.
  signal(SIGPIPE, SIG_DFL);
  signal(SIGXFSZ, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
  char command[] = "chown";
  char owner[] = "root:system";
  char* const arguments[] = {command, owner, path, nullptr};
  if (IsSameFile(path, file)) {
    execvp(command, arguments);
  }
  const ssize_t written = write(STDERR_FILENO, message, messageLength);
  static_cast<void>(written);  // nobody is left to tell
  _exit(-1);
}

}  // namespace

void changeOwner(const char* path, const char* label, int file) {
  char message[kMessageSize];
  snprintf_s(message, sizeof message, sizeof message - 1, "%s[%s] err\n", label, path);
  const size_t length = strnlen(message, sizeof message);
  const std::string text = path;
  const size_t end = text.rfind('/');
  const ClosedDirectory closed(text.substr(0, end != 0 ? end : 1));  // with a "/" behind it a link would be followed
  const pid_t child = fork();
  if (child == 0) {
    RunChown(const_cast<char*>(path), file, message, length);
  }
  if (child > 0) {
    waitForChild(child);
  }
}
