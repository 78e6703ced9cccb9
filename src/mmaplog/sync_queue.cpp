#include "mmaplog/sync_queue.h"

#include <unistd.h>

#include <algorithm>

void syncAndClose(int fd) {
  if (fd >= 0) {
    fdatasync(fd);
    close(fd);
  }
}

bool SyncQueue::Add(int fd) {
  MutexLock held(lock);
  if (count == kMostFiles) {
    return false;
  }
  files[count++] = fd;
  return true;
}

void SyncQueue::SyncAll() {
  for (int fd; (fd = TakeOldest()) >= 0;) {
    syncAndClose(fd);
  }
}

/// The descriptor, now the caller's, or -1.
int SyncQueue::TakeOldest() {
  MutexLock held(lock);
  if (count == 0) {
    return -1;
  }
  const int oldest = files[0];
  std::copy(files + 1, files + count, files);
  --count;
  return oldest;
}
