// The input side of a collector: nodes become columns and time-stamped lines.

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "collect/column_format.h"
#include "collect/line_stream.h"
#include "collect/quilbase.h"
#include "platform/property.h"
#include "safestr/safestr.h"
#include "thread/interruptible.h"
#include "thread/thread_base.h"

namespace {

constexpr size_t kTextSize = LineStream::kTextSize;
constexpr size_t kTextLength = kTextSize - 1;
constexpr char kShellLogNode[] = "/dev/cshell_log";

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

bool IsShellLog(const char* path) {
  return strcmp(path, kShellLogNode) == 0;
}

/// Asks init to stop the service that feeds the shell log; nothing for any other node.
void StopFeeder(const char* path) {
  if (IsShellLog(path)) {
    property_set("ctl.stop", "kmsgcat_cp");
  }
}

void CloseNode(int fd) {
  if (fd >= 0) {
    close(fd);
  }
}

/// True when a call of interruptible.h gave `result` because the thread was asked to stop, which says nothing about the
/// node.
bool WasStopped(ssize_t result) {
  return result < 0 && errno == EINTR;
}

}  // namespace

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
  while (true) {
    const ssize_t size = readNode(fd, chunk, kTextLength);
    if (size > 0) {
      if (writeChunk(chunk, static_cast<size_t>(size), width, lineDone) != 0) {
        return 1;
      }
      // More may follow: a value that a stop breaks off is not to count as whole, nor its row.
      if (written && ThreadBase::currentStopRequested()) {
        return 1;
      }
      written = true;
    } else if (WasStopped(size)) {
      return 1;
    } else if (written) {
      return 0;
    } else if (failureRetry == 0) {
      return writeFailureColumn(width, lineDone);
    } else if (isRetryBudgetUsedUp()) {
      return 1;
    } else {
      sleepSeconds(1);
      if (ThreadBase::currentStopRequested()) {
        return 1;
      }
    }
  }
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
  if (path == nullptr || output == nullptr) {
    return 1;
  }
  LineStream lines(*output, retriesStream);
  int fd = openNode(path);
  if (fd < 0 && (!retriesStream || IsShellLog(path))) {
    if (!WasStopped(fd)) {
      StopFeeder(path);
    }
    return 1;
  }
  unsigned failures = 0;  // in a row, openings and reads
  // A read of no bytes is no end: a node that has nothing now may have more later.
  while (!ThreadBase::currentStopRequested()) {
    const ssize_t size = fd < 0 ? -1 : readNode(fd, lines.freeSpace(), lines.freeSize());
    if (size >= 0) {
      failures = 0;
      if (!lines.WriteCompleted(static_cast<size_t>(size))) {
        break;
      }
      continue;
    }
    const int error = errno;  // of the read, or of the opening that left nothing to read
    if (!isWorthARetry(path, error, ++failures, lines.freeSize())) {
      break;
    }
    if (retriesStream) {
      lines.NoteFailedRead(error);
    }
    // What feeds the node may have been started anew, and the descriptor lead to what was there before.
    if (fd < 0 || (failures > 1 && !hasShellLogRule(path))) {
      CloseNode(fd);
      fd = openNode(path);
    }
  }
  if (retriesStream) {
    logcatWrite("", 0, true);  // no line comes any more that would have a file set up for what waits
  }
  CloseNode(fd);
  return 1;
}

/// Tells whether the stream at `path` is to be tried again after an `error`, the `failures`th in a row, and makes the
/// pause that belongs between the two.
bool Quilbase::isWorthARetry(const char* path, int error, unsigned failures, size_t freeSize) {
  if (ThreadBase::currentStopRequested()) {
    return false;
  }
  if (hasShellLogRule(path)) {
    return isShellLogWorthARetry(path, freeSize);
  }
  if (!retriesStream) {
    return false;
  }
  if (error != EPIPE || failures > 1) {  // a message node's reader that was too slow has text waiting
    sleepSeconds(1);
  }
  return true;
}

bool Quilbase::hasShellLogRule(const char* path) const {
  return IsShellLog(path) && failureRetry != 0;
}

bool Quilbase::isShellLogWorthARetry(const char* path, size_t freeSize) {
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
  return width == 0 ? 1 : writeColumn(ColumnFormat::kReadFailure, width, lineDone);
}

int Quilbase::writeColumn(const char* text, size_t width, bool lineDone) {
  char column[kTextSize];
  const int result = snprintf_s(column, kTextSize, kTextLength, "%-*s", static_cast<int>(width), text);
  return logcatWrite(column, LineStream::FormattedLength(column, result), lineDone);
}
