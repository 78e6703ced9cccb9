#include "logfile/change_owner.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include "safestr/safestr.h"
#include "thread/interruptible.h"

namespace {

constexpr size_t kMessageSize = PATH_MAX + 64;
constexpr size_t kOpenedSize = 32;

/// The child, which shares the memory of the daemon until it is another program: it changes nothing there but its own
/// stack frame, and makes async-signal-safe calls only. It begins with all signals blocked.
[[noreturn, gnu::noinline]] void RunChown(char* path, int file, const char* message, size_t messageLength) {
  // What the daemon ignores or handles has its usual effect on a command.
  for (int number = 1; number < NSIG; ++number) {
    signal(number, SIG_DFL);
  }
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
  fcntl(file, F_SETFD, 0);  // the command inherits it; the daemon has a table of descriptors of its own
  char command[] = "chown";
  char owner[] = "root:system";
  char* const arguments[] = {command, owner, path, nullptr};
  execvp(command, arguments);
  const ssize_t written = write(STDERR_FILENO, message, messageLength);
  static_cast<void>(written);  // nobody is left to tell
  _exit(-1);
}

}  // namespace

void changeOwner(const char* path, const char* label, int file) {
  char message[kMessageSize];
  snprintf_s(message, sizeof message, sizeof message - 1, "%s[%s] err\n", label, path);
  const size_t length = strnlen(message, sizeof message);
  char opened[kOpenedSize];
  snprintf_s(opened, sizeof opened, sizeof opened - 1, "/proc/self/fd/%d", file);
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  // A fork would copy the page tables of all collectors, and have each page that they write copied then.
  const pid_t child = vfork();
  if (child == 0) {
    RunChown(opened, file, message, length);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (child > 0) {
    waitForChild(child);
  }
}
