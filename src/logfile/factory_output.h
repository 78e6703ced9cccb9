#ifndef QUILCAT_LOGFILE_FACTORY_OUTPUT_H_
#define QUILCAT_LOGFILE_FACTORY_OUTPUT_H_

#include <chrono>

#include "logfile/log_output.h"

/// The output of factory mode: plain text in a live file at the output path itself, rotated through five numbered
/// files, five of which become an archive. All of it happens on the thread that writes.
class FactoryOutput : public LogOutput {
 public:
  /// Opens no file: setupOutput() does.
  FactoryOutput(const Settings& settings, Owner& owner);
  /// Brings the live file to disk and closes it.
  ~FactoryOutput() override;

  /// After a failed write the file is closed, and what follows is dropped with 0 until it is opened anew: a second
  /// later at the earliest, or at a rotation. With `keepRefused` it stays open, and what follows is held too; 1: not
  /// taken.
  int logcatWrite(const char* data, size_t len, bool lineDone) override { return factoryWrite(data, len, lineDone); }
  void logcatClose() override;
  /// Nothing: what was written is in the file.
  void flushUnlessBusy() override {}

 private:
  int openOutput() override;
  void rotate() override;
  int writeCollected() override;
  bool holdsText() override { return collectedSize != 0; }
  bool isFileDead() const override { return logFd < 0 && Clock::now() >= nextOpening; }

  int factoryWrite(const char* data, size_t len, bool lineDone);
  size_t room() const { return kCollectedSize - collectedSize; }
  void collect(const char* data, size_t len);
  void dropCollected(size_t size);
  void forgetCollected();
  void giveUpWrite();
  void openLogFileFactory();
  void rotateLogsFactory();
  void deleteOldStyleFiles();
  void finishFile();
  void syncWhenDue();

  /// Longest text that is taken in one write with `keepRefused`, and most that a run collects.
  static constexpr size_t kCollectedSize = 16384;

  const bool keepsRefused;
  bool isRefusing = false;  ///< the last write failed, and that was reported
  size_t collectedSize = 0;
  char collected[kCollectedSize];  ///< text that is not in the file yet
  int logFd = -1;
  Clock::time_point nextOpening;          ///< of a file that refused text
  const std::chrono::seconds syncPeriod;  ///< 0: the kernel decides
  Clock::time_point lastSync;
};

#endif  // QUILCAT_LOGFILE_FACTORY_OUTPUT_H_
