#ifndef QUILCAT_COLLECT_QUILBASE_H_
#define QUILCAT_COLLECT_QUILBASE_H_

#include <stddef.h>
#include <stdint.h>

#include <memory>

#include "collect/monitor_dir.h"
#include "config/quilcommon.h"
#include "logfile/log_output.h"

/// One collector's readers, which turn nodes into columns and lines, and the output that these go to.
///
/// One thread at a time: the constructing thread, from the start of the collector's worker only that. flushUnlessBusy()
/// and isWriting() alone may be called by any thread. Operations that return an int give 0 on success and 1 on failure.
class Quilbase : private LogOutput::Owner {
 public:
  using QuilcatGroup_t = QuilCommon::QuilcatGroup_t;
  using QuilcatStrList_t = QuilCommon::QuilcatStrList_t;
  using type_write = QuilCommon::type_write;

  /// Borrows `group`, which outlives the collector. Lowers the service's maxCompressdFiles to 1000. In mmap mode the
  /// writer's timer and the directory monitor run from now on. Opens no file: setupOutput() does. Without a group there
  /// is no output.
  Quilbase(QuilcatGroup_t* group, type_write writeMode);
  /// Ends the monitor, then the output. The worker must have ended.
  virtual ~Quilbase();
  Quilbase(const Quilbase&) = delete;
  Quilbase& operator=(const Quilbase&) = delete;

  /// Called each time a new log file was opened, on the thread that opened it.
  void openLogFilePost() override = 0;

  // The output; log_output.h tells what each does.
  int setupOutput();
  int logcatWrite(const char* data, size_t len, bool lineDone);
  void logcatClose();
  void flushUnlessBusy();
  bool isWriting() const { return output != nullptr && output->isWriting(); }
  void setWorker();
  void setUpForHeldText();

  /// Writes `text` as a column: left-aligned, blank-filled to `width` characters, at its own length when that is 0.
  int logcatWriteFixLenBuffer(char* text, size_t width, bool lineDone);

  /// Reads the node at `path` to its end and writes each piece of up to 8191 bytes, less its last character, as a
  /// column. A node that cannot be read gives the column "Read Fail", or 1 when `width` is 0. With a `failureRetry` in
  /// the group a failed read is repeated after a second; when that many have failed, it gives 1 and no column. A stop
  /// gives 1, too.
  int node_cat_once(const char* path, size_t width, bool lineDone);

  /// The same for one read, never repeated, from the first node of `list` that opens; of no bytes it is an empty
  /// column.
  int node_cat_alter_once(QuilcatStrList_t* list, size_t width, bool lineDone);

  /// Reads the node at `path` and writes each line after the time of its arrival, until the node or a write fails in a
  /// way that the group's `on_write_failure` and `failureRetry` do not outlive, or the thread is asked to stop. A node
  /// whose failures are outlived is opened anew from the second in a row on.
  /// Always 1.
  int node_cat_stream(const char* path);

 protected:
  /// The thread of the directory monitor, for any thread to stop; null without one.
  ThreadBase* monitor() const { return monitorDir.get(); }

 private:
  void outputDirectoryMade() override;

  int readToEnd(int fd, size_t width, bool lineDone);
  int writeColumn(const char* text, size_t width, bool lineDone);
  int writeChunk(char* chunk, size_t size, size_t width, bool lineDone);
  int writeFailureColumn(size_t width, bool lineDone);
  bool isWorthARetry(const char* path, int error, unsigned failures, size_t freeSize);
  bool hasShellLogRule(const char* path) const;
  bool isShellLogWorthARetry(const char* path, size_t freeSize);
  bool isRetryBudgetUsedUp();

  std::unique_ptr<LogOutput> output;       ///< null without a group
  std::unique_ptr<MonitorDir> monitorDir;  ///< mmap mode only; flushes the output, so it is destroyed first
  uint64_t failureCount = 0;               ///< failed reads counted against failureRetry
  uint64_t failureRetry = 0;
  bool retriesStream = false;  ///< the stream outlives a failed write and a failed read
};

#endif  // QUILCAT_COLLECT_QUILBASE_H_
