#ifndef QUILCAT_THREAD_INTERRUPTIBLE_H_
#define QUILCAT_THREAD_INTERRUPTIBLE_H_

#include <stddef.h>
#include <sys/types.h>

/// Calls that block, for threads that can be asked to stop (ThreadBase). Each repeats the system call when a signal
/// interrupts it, unless the calling thread was asked to stop: then it fails with EINTR. A call that does not block is
/// made even then. Any thread may call them.

/// open(2) for reading, close-on-exec. The descriptor, owned by the caller, or -1.
int openNode(const char* path);

/// read(2): bytes read, 0 at the end, -1 on failure.
ssize_t readNode(int fd, void* buffer, size_t size);

/// write(2): bytes written, -1 on failure.
ssize_t writeOutput(int fd, const void* data, size_t size);

/// Sleeps for `seconds`.
void sleepSeconds(unsigned seconds);

/// Sleeps for `milliseconds`.
void sleepMilliseconds(unsigned milliseconds);

/// Waits for child `pid` to end.
void waitForChild(pid_t pid);

#endif  // QUILCAT_THREAD_INTERRUPTIBLE_H_
