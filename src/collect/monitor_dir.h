#ifndef QUILCAT_COLLECT_MONITOR_DIR_H_
#define QUILCAT_COLLECT_MONITOR_DIR_H_

#include "thread/thread_base.h"

class LogOutput;

/// A directory that every monitor watches beside its own: who opens it wants all logs up to date.
extern const char* DMD_FOLDER;

/// Flushes an output each time its directory, DMD_FOLDER or a directory inside them is opened, so that whoever lists
/// the logs finds them complete. Sleeps without a time-out in between.
///
/// Created, started and destroyed by the output's collector. The thread touches nothing of the output but
/// logcatClose().
class MonitorDir : public ThreadBase {
 public:
  /// Watches the directory part of `path`. A path without one gives a thread that ends at once.
  explicit MonitorDir(const char* path);
  /// Ends and joins the thread and closes the descriptor.
  ~MonitorDir() override;

  /// Sets the output to flush, borrowed. Before start().
  void SetupLogBase(LogOutput* output);

  /// Watches both directories, those of them that exist; watching one again changes nothing. For any thread: the
  /// collector calls it when its output has made the directory anew.
  void WatchDirectories();

  void run() override;

 private:
  void GetDir(const char* path);
  bool WaitForEvents();

  char* dirPath = nullptr;  ///< malloc
  LogOutput* logBase = nullptr;
  int inotifyFd;
};

#endif  // QUILCAT_COLLECT_MONITOR_DIR_H_
