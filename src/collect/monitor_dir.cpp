#include "collect/monitor_dir.h"

#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/inotify.h>
#include <unistd.h>

#include "logfile/directory_part.h"
#include "logfile/log_output.h"
#include "thread/interruptible.h"

const char* DMD_FOLDER = "/data/log/dmd_log";

namespace {

constexpr uint32_t kWatchMask = IN_OPEN | IN_ISDIR;
constexpr size_t kEventBufferSize = 1024;
constexpr unsigned kFlushPause = 50;  // milliseconds

/// True when one of the inotify records, 16 bytes and a name of `len` bytes each, is the opening of a directory.
bool OpenedDirectory(const char* events, size_t size) {
  for (size_t offset = 0; offset + sizeof(inotify_event) <= size;) {
    inotify_event event;
    memcpy(&event, events + offset, sizeof event);
    if ((event.mask & IN_ISDIR) != 0) {
      return true;
    }
    offset += sizeof event + event.len;
  }
  return false;
}

}  // namespace

MonitorDir::MonitorDir(const char* path) : inotifyFd(inotify_init1(IN_CLOEXEC)) {
  GetDir(path);
}

MonitorDir::~MonitorDir() {
  stop(Clock::time_point::max());
  if (inotifyFd >= 0) {
    close(inotifyFd);
  }
  free(dirPath);
}

void MonitorDir::GetDir(const char* path) {
  if (path == nullptr || strchr(path, '/') == nullptr) {
    return;
  }
  dirPath = copyDirectoryPart(path);
  if (dirPath == nullptr) {
    fprintf(stderr, "malloc memory fail when get dir.\n");
  }
}

void MonitorDir::SetupLogBase(LogOutput* output) {
  logBase = output;
}

void MonitorDir::WatchDirectories() {
  if (inotifyFd >= 0 && dirPath != nullptr) {
    inotify_add_watch(inotifyFd, dirPath, kWatchMask);
    inotify_add_watch(inotifyFd, DMD_FOLDER, kWatchMask);
  }
}

void MonitorDir::run() {
  if (logBase == nullptr || dirPath == nullptr || inotifyFd < 0) {
    return;
  }
  alignas(inotify_event) char events[kEventBufferSize] = {};
  WatchDirectories();
  while (!currentStopRequested()) {
    if (!WaitForEvents()) {
      continue;
    }
    const ssize_t size = readNode(inotifyFd, events, sizeof events);
    if (size > 0 && OpenedDirectory(events, static_cast<size_t>(size))) {
      // Whoever opens a directory again and again gets one flush for all openings of the time that follows.
      logBase->logcatClose();
      sleepMilliseconds(kFlushPause);
    }
  }
}

bool MonitorDir::WaitForEvents() {
  pollfd watched = {inotifyFd, POLLIN, 0};
  return poll(&watched, 1, -1) >= 1;
}
