#ifndef QUILCAT_LOGFILE_LOG_OUTPUT_H_
#define QUILCAT_LOGFILE_LOG_OUTPUT_H_

#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <string>

#include "logfile/indexed_files.h"
#include "mmaplog/log_format.h"

/// What a collector writes to: a directory, a log file in it that is written now, and the files that it is rotated
/// through.
///
/// One thread at a time: first the constructing thread, then only the collector's worker. flushUnlessBusy(), and of a
/// mapped output logcatClose(), may be called by any thread. Failed steps are reported on standard error and the
/// sequence that they belong to goes on. Operations that return an int give 0 on success and 1 on failure.
class LogOutput {
 public:
  /// Told what happens to an output, on the thread that called the output.
  class Owner {
   public:
    /// A new log file is open. What is written to the output meanwhile is its beginning and rotates nothing.
    virtual void openLogFilePost() = 0;
    /// The output's directory was made, or may have been made anew.
    virtual void outputDirectoryMade() = 0;

   protected:
    ~Owner() = default;
  };

  struct Settings {
    const char* outputFilePath = nullptr;  ///< borrowed; null writes to standard output in factory mode, nowhere else
    uint64_t rotateSizeKB = 4096;          ///< KiB of text; 0: never rotate
    uint64_t maxFiles = 10;                ///< indexed files kept by a mapped output, archives by a factory output
    bool keepRefused = false;              ///< take no text that the disk refuses, instead of dropping it
    uint64_t syncSeconds = 0;  ///< time between two syncs of the file that is written; 0: the kernel decides
    bool removeEmpty = false;  ///< a mapped output's set-up removes files without text that nobody writes
  };

  virtual ~LogOutput() = default;
  LogOutput(const LogOutput&) = delete;
  LogOutput& operator=(const LogOutput&) = delete;

  /// Prepares the output: makes the directory (0775, root:system), lists the files that exist, opens a log file.
  int setupOutput();

  /// Most text that one call always has room for: what a block may lack to its end.
  static constexpr size_t kMostText = LogFormat::kBlockArea - LogFormat::kBlockThreshold + 1;

  /// Appends `len` bytes, at most kMostText: whole lines, the last one perhaps without its line feed. As write(2) it
  /// returns how many of them it took; the caller keeps the rest, and may offer it again. A file is rotated between two
  /// lines, before the one that would reach the rotation size. A log file that has vanished, or another file in its
  /// place, is set up again first.
  size_t writeLines(const char* data, size_t len);

  /// The same for a piece of a line that is not parted by a rotation; `lineDone` says that it ends one, and that a
  /// rotation may come next. 1: part of it or all was not taken.
  int logcatWrite(const char* data, size_t len, bool lineDone);

  /// Says that the calling thread is the worker. It is woken (ThreadBase::woken()) while text waits for another file,
  /// and calls setUpForHeldText() then, wherever it was interrupted.
  virtual void setWorker() {}
  void setUpForHeldText();

  /// Brings all text to the file (mapped output), or closes the file (factory output).
  virtual void logcatClose() = 0;

  /// Brings all text to the file unless the output is in use; for a collector whose worker is stuck.
  virtual void flushUnlessBusy() = 0;

  /// True during a write: the worker has text in hand. Any thread may call.
  bool isWriting() const { return writing; }

 protected:
  using Clock = std::chrono::steady_clock;
  /// How long what failed is left alone.
  static constexpr std::chrono::seconds kPause{1};

  /// Borrows `owner` and the path in `settings`; both outlive the output.
  LogOutput(const Settings& settings, Owner& owner);

  /// The part of setupOutput() after the directory.
  virtual int openOutput() = 0;
  /// Starts a new file and lets the old ones move on or go.
  virtual void rotate() = 0;
  /// True when the current file can take no text any more and it is time to try another one.
  virtual bool isFileDead() const = 0;

  /// Appends to the current file and adds to curFileBytes. Returns how many bytes were taken.
  virtual size_t append(const char* data, size_t len) = 0;

  /// Takes note of the file at logFilePath, which was just opened.
  void noteFile();

  Owner& owner;
  const char* const outputFilePath;
  const std::string prevLinkPath;  ///< outputFilePath and ".1"
  const uint64_t rotateSizeKB;
  const uint64_t maxFiles;
  const bool keepsRefused;
  std::string logFilePath;       ///< the file that is written now; empty until there is one
  IndexedFiles files;            ///< the output's compressed files
  bool hasOldStyleFiles = true;  ///< there may still be files of the other write mode
  uint64_t curFileBytes = 0;     ///< bytes of text written to the current file
  unsigned madeDirectories = 0;  ///< on the way to the output since a file was last begun

 private:
  size_t write(const char* data, size_t len, bool lineDone);
  size_t linesBeforeRotation(const char* data, size_t len) const;
  void setUpIfNeeded();
  bool needsSetUp() const;
  bool isFileThere() const;
  bool isDirectoryThere() const;

  Clock::time_point nextSetUp;  ///< after one that failed, not before that time
  struct stat openedFile = {};  ///< what stood at logFilePath when it was opened
  std::atomic<bool> writing{false};
  bool changingFile = false;  ///< text is the first of a new file, and rotates nothing, however long it is
  bool lineComplete = true;   ///< what was taken last ended a line
};

#endif  // QUILCAT_LOGFILE_LOG_OUTPUT_H_
