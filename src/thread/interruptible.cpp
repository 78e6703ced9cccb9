#include "thread/interruptible.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "thread/thread_base.h"

namespace {

/// Repeats `call` until it is not interrupted, or the thread is asked to stop. It is made at least once: a call that
/// does not block must still be done then, and one that blocks is interrupted again.
template <typename Call>
auto Repeat(Call call) -> decltype(call()) {
  while (true) {
    const auto result = call();
    if (result != -1 || errno != EINTR || ThreadBase::currentStopRequested()) {
      return result;
    }
    ThreadBase::currentWoken();
  }
}

void Sleep(timespec remaining) {
  Repeat([&remaining] { return nanosleep(&remaining, &remaining); });
}

}  // namespace

int openNode(const char* path) {
  return Repeat([path] { return open(path, O_RDONLY | O_CLOEXEC); });
}

ssize_t readNode(int fd, void* buffer, size_t size) {
  return Repeat([=] { return read(fd, buffer, size); });
}

ssize_t writeOutput(int fd, const void* data, size_t size) {
  return Repeat([=] { return write(fd, data, size); });
}

void sleepSeconds(unsigned seconds) {
  Sleep({static_cast<time_t>(seconds), 0});
}

void sleepMilliseconds(unsigned milliseconds) {
  Sleep({static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1'000'000});
}

void waitForChild(pid_t pid) {
  Repeat([pid] { return waitpid(pid, nullptr, 0); });
}
