// The input side of a collector: nodes become columns and time-stamped lines.

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include "collect/quilbase.h"
#include "platform/local_time.h"
#include "platform/property.h"
#include "safestr/safestr.h"
#include "thread/interruptible.h"
#include "thread/thread_base.h"

namespace {

constexpr size_t kTextSize = 8192;
constexpr size_t kTextLength = kTextSize - 1;
constexpr char kShellLogNode[] = "/dev/cshell_log";

/// Length of what snprintf_s left in `text`, given its result: the count, or -1 when it cut the text.
size_t FormattedLength(const char* text, int result) {
  return result >= 0 ? static_cast<size_t>(result) : strnlen(text, kTextSize);
}

/// Drops the line feed that ends a node's value: the last character of the text, unless that is its only one or a
/// carriage return. Returns the length left.
size_t CutLastCharacter(char* text) {
  const size_t length = strnlen(text, kTextSize);
  if (length < 2 || text[length - 1] == '\r') {
    return length;
  }
  text[length - 1] = '\0';
  return length - 1;
}

/// Asks init to stop the service that feeds the shell log; nothing for any other node.
void StopFeeder(const char* path) {
  if (strcmp(path, kShellLogNode) == 0) {
    property_set("ctl.stop", "kmsgcat_cp");
  }
}

/// True when a call of interruptible.h gave `result` because the thread was asked to stop, which says nothing about the
/// node.
bool WasStopped(ssize_t result) {
  return result < 0 && errno == EINTR;
}

/// The time of a line's arrival, "11-22 20:17:29" and milliseconds. The text is made once a second and kept.
class LineClock {
 public:
  /// Takes the time. False: the local time is not to be had, and text() is of no use.
  bool Update() {
    gettimeofday(&now, nullptr);
    if (now.tv_sec != second) {
      tm local;
      usable = localTime(now.tv_sec, &local) && strftime(clock, sizeof clock, "%m-%d %H:%M:%S", &local) > 0;
      second = now.tv_sec;
    }
    return usable;
  }
  const char* text() const { return clock; }
  long milliseconds() const { return static_cast<long>(now.tv_usec / 1000); }

 private:
  timeval now = {};
  time_t second = -1;
  bool usable = false;
  char clock[32] = {};
};

}  // namespace

/// Splits the bytes of a node into lines.
///
/// Holds one buffer of at most 8191 bytes; what stands behind the last line feed is kept at its start until the rest of
/// the line arrives.
class Quilbase::LineStream {
 public:
  explicit LineStream(Quilbase& collector) : owner(collector) {}

  char* freeSpace() { return buffer + kept; }
  size_t freeSize() const { return kTextLength - kept; }

  /// Emits the lines that the `size` bytes read into freeSpace() complete. A zero byte ends the data; what follows it
  /// is lost. A full buffer without a line feed is a line. False: a write failed.
  bool Take(size_t size) {
    char* end = buffer + kept + size;
    *end = '\0';
    if (char* zero = static_cast<char*>(memchr(freeSpace(), '\0', size)); zero != nullptr) {
      end = zero;
    }
    char* line = buffer;
    char* search = freeSpace();  // what was kept holds no line feed
    while (char* feed = static_cast<char*>(memchr(search, '\n', static_cast<size_t>(end - search)))) {
      *feed = '\0';
      if (feed != line && !Emit(line)) {
        return false;
      }
      line = search = feed + 1;
    }
    kept = static_cast<size_t>(end - line);
    if (kept == kTextLength) {
      kept = 0;
      return Emit(line);
    }
    memmove(buffer, line, kept);
    return true;
  }

 private:
  bool Emit(const char* line) {
    const int result = clock.Update() ? snprintf_s(output, kTextSize, kTextLength, "%s.%03ld %s\n", clock.text(),
                                                   clock.milliseconds(), line)
                                      : snprintf_s(output, kTextSize, kTextLength, "%s\n", line);
    return owner.logcatWrite(output, FormattedLength(output, result), true) == 0;
  }

  Quilbase& owner;
  LineClock clock;
  size_t kept = 0;
  char buffer[kTextSize] = {};
  char output[kTextSize] = {};
};

int Quilbase::logcatWriteFixLenBuffer(char* text, size_t width, bool lineDone) {
  if (text == nullptr) {
    return 1;
  }
  return writeColumn(text, width != 0 ? width : strnlen(text, kTextSize), lineDone);
}

int Quilbase::node_cat_once(const char* path, size_t width, bool lineDone) {
  if (path == nullptr) {
    return 1;
  }
  const int fd = openNode(path);
  if (fd < 0) {
    return WasStopped(fd) ? 1 : writeFailureColumn(width, lineDone);
  }
  const int result = readToEnd(fd, width, lineDone);
  close(fd);
  return result;
}

int Quilbase::readToEnd(int fd, size_t width, bool lineDone) {
  char chunk[kTextSize] = {};
  bool written = false;
  while (!ThreadBase::currentStopRequested()) {
    const ssize_t size = readNode(fd, chunk, kTextLength);
    if (size > 0) {
      if (writeChunk(chunk, static_cast<size_t>(size), width, lineDone) != 0) {
        return 1;
      }
      written = true;
    } else if (written) {
      return 0;
    } else if (WasStopped(size)) {
      return 1;
    } else if (failureRetry == 0) {
      return writeFailureColumn(width, lineDone);
    } else if (isRetryBudgetUsedUp()) {
      return 1;
    } else {
      sleepSeconds(1);
    }
  }
  return written ? 0 : 1;
}

int Quilbase::node_cat_alter_once(QuilcatStrList_t* list, size_t width, bool lineDone) {
  if (list == nullptr) {
    return 1;
  }
  int fd = -1;
  for (const QuilcatStrList_t* entry = list; fd < 0 && entry != nullptr && entry->str != nullptr; entry = entry->next) {
    fd = openNode(entry->str);
  }
  if (fd < 0) {
    return WasStopped(fd) ? 1 : writeFailureColumn(width, lineDone);
  }
  char chunk[kTextSize] = {};
  const ssize_t size = readNode(fd, chunk, kTextLength);
  const bool wasStopped = WasStopped(size);
  close(fd);
  if (size < 0) {
    return wasStopped ? 1 : writeFailureColumn(width, lineDone);
  }
  return writeChunk(chunk, static_cast<size_t>(size), width, lineDone);
}

int Quilbase::node_cat_stream(const char* path) {
  if (path == nullptr) {
    return 1;
  }
  const int fd = openNode(path);
  if (fd < 0) {
    if (!WasStopped(fd)) {
      StopFeeder(path);
    }
    return 1;
  }
  LineStream lines(*this);
  // A read of no bytes is no end: a node that has nothing now may have more later.
  while (!ThreadBase::currentStopRequested()) {
    const ssize_t size = readNode(fd, lines.freeSpace(), lines.freeSize());
    if (size < 0 ? !isWorthARetry(path, lines.freeSize()) : !lines.Take(static_cast<size_t>(size))) {
      break;
    }
  }
  close(fd);
  return 1;
}

/// After a failed read: pauses, if the stream at `path` is one that is read again and its budget is not used up.
bool Quilbase::isWorthARetry(const char* path, size_t freeSize) {
  if (strcmp(path, kShellLogNode) != 0 || failureRetry == 0 || ThreadBase::currentStopRequested()) {
    return false;
  }
  if (isRetryBudgetUsedUp()) {
    StopFeeder(path);
    return false;
  }
  sleepSeconds(1);
  if (ThreadBase::currentStopRequested()) {
    return false;
  }
  fprintf(stderr, "read failure!reserved_buf_size = %d\n", static_cast<int>(freeSize));
  return true;
}

/// Counts a failed read. True: that was the last of the budget, and the count begins anew.
bool Quilbase::isRetryBudgetUsedUp() {
  if (++failureCount < failureRetry) {
    return false;
  }
  failureCount = 0;
  return true;
}

int Quilbase::writeChunk(char* chunk, size_t size, size_t width, bool lineDone) {
  chunk[size] = '\0';
  const size_t length = CutLastCharacter(chunk);
  return writeColumn(chunk, width != 0 ? width : length, lineDone);
}

int Quilbase::writeFailureColumn(size_t width, bool lineDone) {
  return width == 0 ? 1 : writeColumn("Read Fail", width, lineDone);
}

int Quilbase::writeColumn(const char* text, size_t width, bool lineDone) {
  char column[kTextSize];
  const int result = snprintf_s(column, kTextSize, kTextLength, "%-*s", static_cast<int>(width), text);
  return logcatWrite(column, FormattedLength(column, result), lineDone);
}
