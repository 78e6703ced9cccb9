#ifndef QUILCAT_COLLECT_MONITOR_DIR_H_
#define QUILCAT_COLLECT_MONITOR_DIR_H_

#include <array>

#include "thread/thread_base.h"

class LogOutput;

/// A directory that every monitor watches besides its own: whoever opens it wants all logs up to date.
extern const char* DMD_FOLDER;

/// Flushes an output each time its directory, DMD_FOLDER or a directory inside them is opened, so that whoever lists
/// the logs finds them complete. Sleeps without a time-out in between; after a flush for 50 ms, after the opening of
/// files for 5 ms, so that nobody can keep it busy.
///
/// Created, started and destroyed by the output's collector. The thread touches nothing of the output but
/// logcatClose().
class MonitorDir : public ThreadBase {
 public:
  /// For the directory part of `path`. A path without one gives a thread that ends at once; so does a user who has no
  /// inotify instance left, which is reported.
  explicit MonitorDir(const char* path);
  /// Ends and joins the thread.
  ~MonitorDir() override;

  /// Sets the output to flush, borrowed. Before start().
  void SetupLogBase(LogOutput* output);

  /// Watches both directories, those of them that exist, and nothing else any more: one that was moved aside is let go.
  /// Watching one again changes nothing. For one thread at a time, before the monitor is asked to stop: the collector
  /// calls it when its output has made the directory, or has made it anew.
  void WatchDirectories();

  void run() override;

 private:
  void GetDir(const char* path);
  bool WaitForEvents();
  bool TakeEvents();
  void CloseWatches();

  char* dirPath = nullptr;  ///< malloc
  LogOutput* logBase = nullptr;
  int inotifyFd;  ///< -1 once the thread has closed it
  std::array<int, 2> watches{-1, -1};
};

#endif  // QUILCAT_COLLECT_MONITOR_DIR_H_
