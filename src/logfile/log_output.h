#ifndef QUILCAT_LOGFILE_LOG_OUTPUT_H_
#define QUILCAT_LOGFILE_LOG_OUTPUT_H_

#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <string>

#include "logfile/indexed_files.h"

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
    /// A new log file is open. What is written to the output meanwhile stands at its beginning and rotates nothing.
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
    bool keepRefused = false;  ///< hold text that the disk refuses, and take no more, instead of dropping it
    uint64_t syncSeconds = 0;  ///< time between two syncs of the file that is written; 0: the kernel decides
    bool removeEmpty = false;  ///< a mapped output's set-up removes files without text that nobody writes
  };

  virtual ~LogOutput() = default;
  LogOutput(const LogOutput&) = delete;
  LogOutput& operator=(const LogOutput&) = delete;

  /// Prepares the output: makes the directory (0775, root:system), lists the files that exist, opens a log file.
  int setupOutput();

  /// Appends `len` bytes of `data`. `lineDone` says that they end a line: a file is rotated only between lines, before
  /// the write that would reach the rotation size. A log file that has vanished, or another file in its place, is set
  /// up again first.
  virtual int logcatWrite(const char* data, size_t len, bool lineDone) = 0;

  /// Says that the writes until endRun() follow each other without a wait: the lines of one read, the columns of a row.
  /// The look whether the file still stands is then made once for all of them, and a factory output writes them at
  /// once. A run in a run is none.
  void beginRun();
  /// Ends the run; its text is with the system when this returns 0. 1: text was refused, and with `keepRefused` is
  /// held.
  int endRun();
  /// Offers text that is held again, after a file that is gone was set up for it. 1: it was refused again.
  int offerAgain();

  /// Says that the calling thread is the worker. It is woken (ThreadBase::woken()) while text waits for another file,
  /// and calls setUpForHeldText() then, wherever it was interrupted.
  virtual void setWorker() {}
  void setUpForHeldText();

  /// Brings all text to the file (mapped output), or closes the file (factory output).
  virtual void logcatClose() = 0;

  /// Brings all text to the file unless the output is in use; for a collector whose worker is stuck.
  virtual void flushUnlessBusy() = 0;

  /// True from beginRun() to the end of endRun(): the worker has text in hand. Any thread may call.
  bool isInRun() const { return inRun; }

 protected:
  using Clock = std::chrono::steady_clock;
  /// How long what failed is left alone.
  static constexpr std::chrono::seconds kPause{1};

  /// Borrows `owner` and the path in `settings`; both outlive the output.
  LogOutput(const Settings& settings, Owner& owner);

  /// The part of setupOutput() behind the directory.
  virtual int openOutput() = 0;
  /// Starts a new file and lets the old ones move on or go.
  virtual void rotate() = 0;
  /// True when the current file can take no text any more and it is time to try another one.
  virtual bool isFileDead() const = 0;

  /// What comes before a write of `len` bytes: a file that vanished is set up again, and one that the write would fill
  /// is rotated, between lines only.
  void prepareWrite(size_t len, bool lineDone);

  /// Writes what a run has collected. 1: text was refused.
  virtual int writeCollected() = 0;
  /// Brings text to the file as far as it takes any. True: there is some that no file took.
  virtual bool holdsText() = 0;

  /// Takes note of the file at logFilePath, which was just opened.
  void noteFile();

  Owner& owner;
  const char* const outputFilePath;
  const std::string prevLinkPath;  ///< outputFilePath and ".1"
  const uint64_t rotateSizeKB;
  const uint64_t maxFiles;
  std::string logFilePath;       ///< the file that is written now; empty until there is one
  IndexedFiles files;            ///< the output's compressed files
  bool hasOldStyleFiles = true;  ///< files of the other write mode may still stand beside the output
  uint64_t curFileBytes = 0;     ///< bytes of text written to the current file

 private:
  void setUpIfNeeded();
  bool needsSetUp() const;
  bool isFileThere() const;
  bool isDirectoryThere() const;

  Clock::time_point nextSetUp;  ///< after one that failed, not before that time
  struct stat openedFile = {};  ///< what stood at logFilePath when it was opened
  std::atomic<bool> inRun{false};
  bool lookedInRun = false;   ///< the file stood there at the first write of the run, or of the run after a rotation
  bool changingFile = false;  ///< text is the first of a new file, and rotates nothing, however long it is
  bool lineComplete = true;   ///< the last write ended a line
};

#endif  // QUILCAT_LOGFILE_LOG_OUTPUT_H_
