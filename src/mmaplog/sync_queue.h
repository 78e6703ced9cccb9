#ifndef QUILCAT_MMAPLOG_SYNC_QUEUE_H_
#define QUILCAT_MMAPLOG_SYNC_QUEUE_H_

#include <pthread.h>
#include <stddef.h>

#include "thread/mutex.h"

/// Brings a file to disk and closes it; nothing for -1. Waits for the disk. A failure is the kernel's to report, here
/// and below.
///
/// The text came through a shared mapping: its pages are dirty since the first store into them, and on Linux fdatasync
/// writes the dirty pages of a file wherever they were made so. The length of the file, which is needed to read it,
/// goes with them.
void syncAndClose(int fd);

/// A file to bring to disk, and with a new one what leads to it.
struct FileToSync {
  int fd = -1;
  int directory = -1;  ///< where a new file was made, open perhaps as a path only; -1: the file is not new
  unsigned above = 0;  ///< how many directories above that one hold a new entry as well
};

/// Files that are brought to disk by a thread of the queue's own, which lives while there are any: no line and no flush
/// waits for it. Any thread may call. A thread that is created inherits the signal mask of the one that adds a file.
class SyncQueue {
 public:
  SyncQueue() = default;
  /// Waits until all files are on disk.
  ~SyncQueue();
  SyncQueue(const SyncQueue&) = delete;
  SyncQueue& operator=(const SyncQueue&) = delete;

  /// Takes the descriptors, and with them the file. False: the queue is full since the disk does not keep up, or there
  /// is no thread to be had; the descriptors stay the caller's.
  bool Add(const FileToSync& file) EXCLUDES(lock);

  /// True when no file waits for the disk.
  bool isIdle() EXCLUDES(lock);

 private:
  static constexpr size_t kMostFiles = 8;

  static void* SyncAll(void* queue);
  bool TakeOldest(FileToSync* oldest) EXCLUDES(lock);

  FileToSync files[kMostFiles] GUARDED_BY(lock) = {};
  size_t count GUARDED_BY(lock) = 0;
  bool running GUARDED_BY(lock) = false;   ///< the thread looks for further files before it ends
  bool joinable GUARDED_BY(lock) = false;  ///< there was a thread since the last join
  pthread_t thread GUARDED_BY(lock) = {};
  Mutex lock;
};

/// A new file, until it is brought to disk with its first text. On some file systems a power cut takes a file whose
/// entry in the directory was not on disk, whatever was of the file itself. Not thread-safe.
class NewFile {
 public:
  NewFile() = default;
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  /// A file was made in `directory`, borrowed and open perhaps as a path only, or -1. On the way there `made`
  /// directories were made, that one the last. It takes the place of a file that was not brought to disk.
  void Expect(int directory, unsigned made);

  /// Gives the file, open as `fd`, borrowed, and what leads to it to the queue; once. False: it was not taken and may
  /// be offered again; or no file is expected.
  bool Sync(int fd, SyncQueue* queue);

 private:
  bool expected = false;
  FileToSync file;
};

#endif  // QUILCAT_MMAPLOG_SYNC_QUEUE_H_
