#ifndef QUILCAT_LOGFILE_FACTORY_OUTPUT_H_
#define QUILCAT_LOGFILE_FACTORY_OUTPUT_H_

#include <chrono>

#include "logfile/log_output.h"
#include "mmaplog/sync_queue.h"

/// The output of factory mode: plain text in a live file at the output path itself, rotated through five numbered
/// files, five of which become an archive. All of it happens on the thread that writes, but that a file is brought to
/// disk with its first text.
class FactoryOutput : public LogOutput {
 public:
  /// Opens no file: setupOutput() does.
  FactoryOutput(const Settings& settings, Owner& owner);
  /// Brings the live file to disk and closes it.
  ~FactoryOutput() override;

  void logcatClose() override;
  /// Nothing: what was written is in the file.
  void flushUnlessBusy() override {}

 private:
  int openOutput() override;
  void rotate() override;
  /// After a failed write the file is closed, and what follows is taken and dropped until it is opened anew: a second
  /// later at the earliest, or at a rotation. With `keepRefused` it stays open.
  size_t append(const char* data, size_t len) override;
  bool isFileDead() const override { return logFd < 0 && Clock::now() >= nextOpening; }

  void giveUpWrite();
  void openLogFileFactory();
  void rotateLogsFactory();
  void deleteOldStyleFiles();
  void finishFile();
  void syncWhenDue();

  bool isRefusing = false;  ///< the last write failed, and that was reported
  int logFd = -1;
  Clock::time_point nextOpening;          ///< of a file that refused text
  const std::chrono::seconds syncPeriod;  ///< 0: the kernel decides
  Clock::time_point lastSync;
  NewFile newFile;
  SyncQueue syncs;
};

#endif  // QUILCAT_LOGFILE_FACTORY_OUTPUT_H_
