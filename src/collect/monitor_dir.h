#ifndef QUILCAT_COLLECT_MONITOR_DIR_H_
#define QUILCAT_COLLECT_MONITOR_DIR_H_

#include "thread/thread_base.h"

class Quilbase;

/// A directory that every monitor watches beside its own: who opens it wants all logs up to date.
extern const char* DMD_FOLDER;

/// Flushes a collector's log each time its output directory, DMD_FOLDER or a directory inside them is opened, so that
/// whoever lists the logs finds them complete. Sleeps without a time-out in between.
///
/// Created, started and destroyed by its collector. The thread touches nothing of the collector but logcatClose().
class MonitorDir : public ThreadBase {
 public:
  /// Watches the directory part of `path`. A path without one gives a thread that ends at once.
  explicit MonitorDir(const char* path);
  /// Ends and joins the thread and closes the descriptor.
  ~MonitorDir() override;

  /// Sets the collector to flush, borrowed. Before start().
  void SetupLogBase(Quilbase* collector);

  /// Watches both directories, those of them that exist; watching one again changes nothing. For any thread: the
  /// collector calls it when it has made its directory anew.
  void WatchDirectories();

  void run() override;

 private:
  void GetDir(const char* path);
  bool WaitForEvents();
  void FlushForEvents(const char* events, size_t size);

  char* dirPath = nullptr;  ///< malloc
  Quilbase* logBase = nullptr;
  int inotifyFd;
};

#endif  // QUILCAT_COLLECT_MONITOR_DIR_H_
