#ifndef QUILCAT_MMAPLOG_SYNC_QUEUE_H_
#define QUILCAT_MMAPLOG_SYNC_QUEUE_H_

#include <stddef.h>

#include "thread/mutex.h"

/// Brings a file to disk and closes it; nothing for -1. Waits for the disk. A failure is the kernel's to report.
///
/// The text came through a shared mapping: its pages are dirty since the first store into them, and on Linux fdatasync
/// writes the dirty pages of a file wherever they were made so. The length of the file, which is needed to read it,
/// goes with them.
void syncAndClose(int fd);

/// Finished files that wait for a thread which brings them to disk. Any thread may call.
class SyncQueue {
 public:
  SyncQueue() = default;
  /// Syncs what is left.
  ~SyncQueue() { SyncAll(); }
  SyncQueue(const SyncQueue&) = delete;
  SyncQueue& operator=(const SyncQueue&) = delete;

  /// Takes a descriptor, and with it the file. False: the queue is full since the disk does not keep up; the descriptor
  /// stays the caller's.
  bool Add(int fd) EXCLUDES(lock);

  /// Syncs and closes all files, oldest first. Waits for the disk, without the lock.
  void SyncAll() EXCLUDES(lock);

 private:
  static constexpr size_t kMostFiles = 8;

  int TakeOldest() EXCLUDES(lock);

  int files[kMostFiles] GUARDED_BY(lock) = {};
  size_t count GUARDED_BY(lock) = 0;
  Mutex lock;
};

#endif  // QUILCAT_MMAPLOG_SYNC_QUEUE_H_
