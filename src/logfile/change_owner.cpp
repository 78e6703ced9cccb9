#include "logfile/change_owner.h"

#include <limits.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "safestr/safestr.h"
#include "thread/interruptible.h"

namespace {

constexpr size_t kMessageSize = PATH_MAX + 64;

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
  const pid_t child = fork();
  if (child == 0) {
    RunChown(const_cast<char*>(path), file, message, length);
  }
  if (child > 0) {
    waitForChild(child);
  }
}
