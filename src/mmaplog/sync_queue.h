#ifndef QUILCAT_MMAPLOG_SYNC_QUEUE_H_
#define QUILCAT_MMAPLOG_SYNC_QUEUE_H_

#include <pthread.h>
#include <stddef.h>

#include "thread/mutex.h"

/// Brings a file to disk and closes it; nothing for -1. Waits for the disk. A failure is the kernel's to report.
///
/// The text came through a shared mapping: its pages are dirty since the first store into them, and on Linux fdatasync
/// writes the dirty pages of a file wherever they were made so. The length of the file, which is needed to read it,
/// goes with them.
void syncAndClose(int fd);

/// Files that are brought to disk by a thread of the queue's own, which lives while there are any: no line and no flush
/// waits for it. Any thread may call. A thread that is created inherits the signal mask of the one that adds a file.
class SyncQueue {
 public:
  SyncQueue() = default;
  /// Waits until all files are on disk.
  ~SyncQueue();
  SyncQueue(const SyncQueue&) = delete;
  SyncQueue& operator=(const SyncQueue&) = delete;

  /// Takes a descriptor, and with it the file. False: the queue is full since the disk does not keep up, or there is no
  /// thread to be had; the descriptor stays the caller's.
  bool Add(int fd) EXCLUDES(lock);

  /// True when no file waits for the disk.
  bool isIdle() EXCLUDES(lock);

 private:
  static constexpr size_t kMostFiles = 8;

  static void* SyncAll(void* queue);
  int TakeOldest() EXCLUDES(lock);

  int files[kMostFiles] GUARDED_BY(lock) = {};
  size_t count GUARDED_BY(lock) = 0;
  bool running GUARDED_BY(lock) = false;   ///< the thread looks for further files before it ends
  bool joinable GUARDED_BY(lock) = false;  ///< there was a thread since the last join
  pthread_t thread GUARDED_BY(lock) = {};
  Mutex lock;
};

#endif  // QUILCAT_MMAPLOG_SYNC_QUEUE_H_
