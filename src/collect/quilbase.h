#ifndef QUILCAT_COLLECT_QUILBASE_H_
#define QUILCAT_COLLECT_QUILBASE_H_

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "config/quilcommon.h"

class MonitorDir;
class Quil;

/// The state of one collector: its output (log file, rotation, links, retention), and the readers that turn nodes into
/// columns and lines of it.
///
/// One thread at a time: first the constructing thread, then only the collector's worker. logcatClose() alone may be
/// called by any thread in mmap mode. Failed steps are reported on standard error and the sequence that they belong to
/// goes on. Operations that return an int give 0 on success and 1 on failure.
///
/// The constructor and the readers live in this folder, the output operations in logfile/.
class Quilbase {
 public:
  using QuilcatGroup_t = QuilCommon::QuilcatGroup_t;
  using QuilcatStrList_t = QuilCommon::QuilcatStrList_t;
  using type_write = QuilCommon::type_write;

  /// Borrows `group`, which outlives the collector. Lowers the service's maxCompressdFiles to 1000. In mmap mode
  /// creates the writer and starts the directory monitor. Opens no file: setupOutput() does.
  Quilbase(QuilcatGroup_t* group, type_write writeMode);
  /// Ends the monitor, writes what is pending, cuts the current file to its written length and closes it. The worker
  /// must have ended.
  virtual ~Quilbase();
  Quilbase(const Quilbase&) = delete;
  Quilbase& operator=(const Quilbase&) = delete;

  /// Called each time a new log file was opened, on the thread that opened it.
  virtual void openLogFilePost() = 0;

  /// Prepares the output: makes the directory (0775, root:system), lists the files that exist, opens a log file. 0 also
  /// without an output path: a factory-mode collector then writes to standard output.
  int setupOutput();

  /// Appends `len` bytes of `data`. `lineDone` says that they end a line: a file is rotated only between lines, before
  /// the write that would reach the rotation size. A log file that has vanished is set up again first.
  int logcatWrite(const char* data, size_t len, bool lineDone);

  /// Brings all text to the file (mmap mode), or closes the file (factory mode).
  void logcatClose();

  /// Brings all text to the file unless the writer is in use; for a collector whose worker is stuck. Any thread.
  void flushUnlessBusy();

  /// Writes `text` as a column: left-aligned, blank-filled to `width` characters, at its own length when that is 0.
  int logcatWriteFixLenBuffer(char* text, size_t width, bool lineDone);

  /// Reads the node at `path` to its end and writes each piece of up to 8191 bytes, less its last character, as a
  /// column. A node that cannot be read gives the column "Read Fail", or 1 when `width` is 0.
  int node_cat_once(const char* path, size_t width, bool lineDone);

  /// The same for one read from the first node of `list` that opens.
  int node_cat_alter_once(QuilcatStrList_t* list, size_t width, bool lineDone);

  /// Reads the node at `path` and writes each line behind the time of its arrival, until the node or a write fails or
  /// the thread is asked to stop. Always 1.
  int node_cat_stream(const char* path);

 protected:
  using PathIterator = std::vector<std::string>::iterator;

  // Output set-up and writing.
  static int create_bugreports_dir(const char* path);
  static int mkdir_p(const char* path, uint32_t mode);
  static int releaseSymlink(const char* path);
  void openLogFile();
  void refreshSymlink();
  int mmapWrite(const char* data, size_t len, bool lineDone);

  // Factory mode.
  int factoryWrite(const char* data, size_t len, bool lineDone);
  void openLogFileFactory();
  void rotateLogsFactory();
  void compressLogsFactory();
  void compressRunFactory(char* directory);

  // Names and their order.
  char* getTimeStamp();
  static std::string get_interger_from_iterator(PathIterator name, uint32_t expectedLength, uint32_t position,
                                                uint32_t count);
  static bool sort_by_early_time(std::string first, std::string second);
  static void rotate_vec(std::vector<std::string>& paths, std::string name);
  std::string get_file_by_max_timestamp(std::vector<std::string> paths);
  void adjustFileVecOrder(std::vector<std::string>& paths);
  int32_t get_newLogFileIndex(std::vector<std::string>& paths);
  void formFileVectors();

  // Retention.
  bool detectOldStyleFiles(const char* path);
  void processMmapFileVec(int32_t mode);
  void deleteOldStyleFiles();
  void removeRedundancy();

  Quil* mmapWriter = nullptr;        ///< owned; mmap mode only
  MonitorDir* monitorDir = nullptr;  ///< owned; mmap mode only
  type_write writeMode = QuilCommon::WRITE_MMAP;
  char* logFilePath = nullptr;           ///< the file that is written now; malloc
  const char* outputFilePath = nullptr;  ///< borrowed from the group
  char* prevLinkPath = nullptr;          ///< outputFilePath and ".1"; malloc
  std::vector<std::string> logFileVec;   ///< full paths of the indexed files, oldest first
  bool hasOldStyleFiles = true;          ///< files of the other write mode may still stand beside the output
  int logFd = -1;
  uint64_t curFileBytes = 0;     ///< bytes of text written to the current file
  uint64_t rotateSizeKB = 4096;  ///< 0: never rotate
  uint64_t maxFiles = 10;        ///< indexed files kept in mmap mode, archives in factory mode
  uint64_t failureCount = 0;     ///< failed reads counted against failureRetry
  uint64_t failureRetry = 0;
  bool lineComplete = true;  ///< the last write ended a line

 private:
  void prepareWrite(size_t len, bool lineDone);
  void rotateLogs();
  void closeLogFd();
  void startFile();
  bool formIndexedPath();
  bool formPath(int32_t index);
  std::string suffixField(PathIterator name, uint32_t offset, uint32_t count) const;
  std::string indexField(PathIterator name) const;
  std::string timeStampField(PathIterator name) const;
  bool scanEntry(const char* directory, const char* name, int32_t mode);

  bool adoptOutputPath();
  void shiftRotatedFiles(int number);
  void packRotatedFiles(const char* directory, const char* archive);
  void deleteRotatedFiles(const char* directory);
  void moveArchivesUp(bool resumed);
  void finishInterruptedRotation();

  class LineStream;
  int readToEnd(int fd, size_t width, bool lineDone);
  int writeColumn(const char* text, size_t width, bool lineDone);
  int writeChunk(char* chunk, size_t size, size_t width, bool lineDone);
  int writeFailureColumn(size_t width, bool lineDone);
  bool retryRead();

  bool settingUpFile = false;  ///< the first text of a new file is being written: that alone rotates nothing
};

#endif  // QUILCAT_COLLECT_QUILBASE_H_
