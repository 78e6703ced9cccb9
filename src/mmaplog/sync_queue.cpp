#include "mmaplog/sync_queue.h"

#include <unistd.h>

#include <algorithm>

void syncAndClose(int fd) {
  if (fd >= 0) {
    fdatasync(fd);
    close(fd);
  }
}

SyncQueue::~SyncQueue() {
  if (joinable) {
    pthread_join(thread, nullptr);
  }
}

bool SyncQueue::Add(int fd) {
  MutexLock held(lock);
  if (count == kMostFiles) {
    return false;
  }
  if (!running) {
    if (joinable) {
      pthread_join(thread, nullptr);  // it has found nothing more to do
    }
    joinable = running = pthread_create(&thread, nullptr, SyncAll, this) == 0;
  }
  if (running) {
    files[count++] = fd;
  }
  return running;
}

bool SyncQueue::isIdle() {
  MutexLock held(lock);
  return !running;
}

/// The thread: syncs and closes all files, oldest first.
void* SyncQueue::SyncAll(void* queue) {
  for (int fd; (fd = static_cast<SyncQueue*>(queue)->TakeOldest()) >= 0;) {
    syncAndClose(fd);
  }
  return nullptr;
}

/// The descriptor, now the caller's; or -1, and the thread is to end.
int SyncQueue::TakeOldest() {
  MutexLock held(lock);
  if (count == 0) {
    running = false;
    return -1;
  }
  const int oldest = files[0];
  std::copy(files + 1, files + count, files);
  --count;
  return oldest;
}
