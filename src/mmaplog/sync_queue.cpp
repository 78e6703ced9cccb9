#include "mmaplog/sync_queue.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace {

/// `directory`, which may be a path only, or the one above it.
int OpenToSync(int directory, const char* name) {
  return openat(directory, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

/// Brings a new file to disk, with the mode and owner that it has by now, then its entry in `directory`, and so on
/// upwards.
void SyncNewFile(const FileToSync& file) {
  fsync(file.fd);
  int directory = OpenToSync(file.directory, ".");
  for (unsigned above = file.above; directory >= 0; --above) {
    fsync(directory);
    const int next = above != 0 ? OpenToSync(directory, "..") : -1;
    close(directory);
    directory = next;
  }
  close(file.directory);
  close(file.fd);
}

}  // namespace

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

bool SyncQueue::Add(const FileToSync& file) {
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
    files[count++] = file;
  }
  return running;
}

bool SyncQueue::isIdle() {
  MutexLock held(lock);
  return !running;
}

/// The thread: syncs and closes all files, oldest first.
void* SyncQueue::SyncAll(void* queue) {
  for (FileToSync file; static_cast<SyncQueue*>(queue)->TakeOldest(&file);) {
    if (file.directory >= 0) {
      SyncNewFile(file);
    } else {
      syncAndClose(file.fd);
    }
  }
  return nullptr;
}

/// Its descriptors are the caller's then. False: the thread is to end.
bool SyncQueue::TakeOldest(FileToSync* oldest) {
  MutexLock held(lock);
  if (count == 0) {
    running = false;
    return false;
  }
  *oldest = files[0];
  std::copy(files + 1, files + count, files);
  --count;
  return true;
}

NewFile::~NewFile() {
  Expect(-1, 0);
}

void NewFile::Expect(int directory, unsigned made) {
  if (file.directory >= 0) {
    close(file.directory);
  }
  file.directory = directory >= 0 ? fcntl(directory, F_DUPFD_CLOEXEC, 0) : -1;
  file.above = std::max(file.above, made);
  expected = true;
}

bool NewFile::Sync(int fd, SyncQueue* queue) {
  if (!expected) {
    return false;
  }
  file.fd = fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (file.fd < 0 || !queue->Add(file)) {
    close(file.fd);
    return false;
  }
  file = {};
  expected = false;
  return true;
}
