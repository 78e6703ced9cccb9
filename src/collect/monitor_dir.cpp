#include "collect/monitor_dir.h"

#include <limits.h>
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
constexpr size_t kEventBufferSize = 16384;  // some 200 openings
constexpr size_t kLongestEvent = sizeof(inotify_event) + NAME_MAX + 1;
// Milliseconds.
constexpr unsigned kFlushPause = 50;
constexpr unsigned kEventPause = 5;

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
  if (inotifyFd < 0 && dirPath != nullptr) {
    fprintf(stderr, "no inotify instance for %s: its logs are flushed by the timer only\n", dirPath);
  }
}

MonitorDir::~MonitorDir() {
  stop();
  CloseWatches();
  free(dirPath);
}

void MonitorDir::CloseWatches() {
  if (inotifyFd >= 0) {
    close(inotifyFd);
  }
  inotifyFd = -1;
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
  if (inotifyFd < 0 || dirPath == nullptr) {
    return;
  }
  const std::array<int, 2> former = watches;
  watches = {inotify_add_watch(inotifyFd, dirPath, kWatchMask), inotify_add_watch(inotifyFd, DMD_FOLDER, kWatchMask)};
  for (const int watch : former) {
    if (watch != watches[0] && watch != watches[1]) {
      inotify_rm_watch(inotifyFd, watch);  // fails where the directory is gone, and its watch with it
    }
  }
}

void MonitorDir::run() {
  if (logBase == nullptr || dirPath == nullptr || inotifyFd < 0) {
    return;
  }
  while (!currentStopRequested()) {
    if (!WaitForEvents()) {
      continue;
    }
    // Whoever opens things again and again causes one look, or one flush, for all of the time that follows.
    if (TakeEvents()) {
      logBase->logcatClose();
      sleepMilliseconds(kFlushPause);
    } else {
      sleepMilliseconds(kEventPause);
    }
  }
  // Takes the kernel some 10 ms, which the monitors of many collectors wait together.
  CloseWatches();
}

bool MonitorDir::WaitForEvents() {
  pollfd watched = {inotifyFd, POLLIN, 0};
  return poll(&watched, 1, -1) >= 1;
}

/// Reads the openings since the last look. True: a directory may be among them. There may be more than are read at a
/// time, and some lost, when files are opened without end: then one is taken to be.
bool MonitorDir::TakeEvents() {
  alignas(inotify_event) char events[kEventBufferSize];
  const ssize_t size = readNode(inotifyFd, events, sizeof events);
  return size > 0 && (sizeof events - static_cast<size_t>(size) < kLongestEvent ||
                      OpenedDirectory(events, static_cast<size_t>(size)));
}
