#ifndef QUILCAT_LOGFILE_MAPPED_OUTPUT_H_
#define QUILCAT_LOGFILE_MAPPED_OUTPUT_H_

#include <unistd.h>

#include <string>

#include "logfile/log_output.h"
#include "mmaplog/quil.h"

/// The output of mmap mode: text goes through the compressed mapped-log writer into indexed files, the newest two of
/// which have links at the output path and at the output path with ".1".
class MappedOutput : public LogOutput {
 public:
  /// Creates the writer. Opens no file: setupOutput() does.
  MappedOutput(const Settings& settings, Owner& owner);
  /// Writes what is pending, cuts the current file to its written length and closes it.
  ~MappedOutput() override;

  void logcatClose() override;
  void flushUnlessBusy() override;
  void setWorker() override { mmapWriter.wakeForNextFile(gettid()); }

 private:
  int openOutput() override;
  void rotate() override;
  size_t append(const char* data, size_t len) override;
  bool isFileDead() const override { return mmapWriter.outputOver(); }

  void openLogFile();
  bool beginNextFile();
  bool openIndexedFile();
  void refreshSymlink();
  void deleteOldStyleFiles();
  void removeRedundancy();

  Quil mmapWriter;
  const bool removesEmpty;
};

#endif  // QUILCAT_LOGFILE_MAPPED_OUTPUT_H_
