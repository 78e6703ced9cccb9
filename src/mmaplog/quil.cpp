#include "mmaplog/quil.h"

#include <fcntl.h>
#include <poll.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include "thread/thread_base.h"

namespace {

constexpr timespec kFlushPeriod = {5, 5000};

/// Set in the thread that receives SIGUSR1.
thread_local volatile sig_atomic_t exitRequested = 0;

/// Takes the note of a timer that went off.
void Acknowledge(int fd) {
  uint64_t count = 0;
  const ssize_t ignored = read(fd, &count, sizeof count);  // none there is as good
  static_cast<void>(ignored);
}

time_t MonotonicSeconds() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec;
}

}  // namespace

Quil::Quil(unsigned syncSeconds, bool keepRefused)
    : buffer(new LogBuffer(keepRefused)),
      syncPeriod(static_cast<time_t>(syncSeconds)),
      flushTimer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  sigset_t exitSignal;
  sigemptyset(&exitSignal);
  sigaddset(&exitSignal, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &exitSignal, nullptr);
  timerStarted = pthread_create(&timerThread, nullptr, timer_thread, this) == 0;
  if (!timerStarted) {
    fprintf(stderr, "Quil:pthread create failed.\n");
  }
}

Quil::~Quil() {
  if (timerStarted) {
    if (pthread_kill(timerThread, SIGUSR1) != 0) {
      fprintf(stderr, "Quil:pthread kill failed.");
    }
    pthread_join(timerThread, nullptr);
  }
  if (flushTimer >= 0) {
    close(flushTimer);
  }
  Flush();
  // The buffer is destroyed first: a last block still goes to the file.
  delete buffer;
  buffer = nullptr;
  if (file != nullptr) {
    syncAndClose(file->Finish());
  }
  delete file;
  file = nullptr;
}

bool Quil::SetOutputPath(const char* path, int directory, unsigned made) {
  if (buffer == nullptr) {
    return false;
  }
  int finished = -1;
  bool opened = false;
  {
    MutexLock held(writerLock);
    if (file != nullptr) {
      finished = file->Finish();
    }
    delete file;
    file = new LogMmap(path);
    buffer->SetupMap(file);
    newFile.Expect(directory, made);
    opened = file->isMmapOpenSucc();
    over = file->isOver();
  }
  SyncFinished(finished);
  return opened;
}

int Quil::outputDescriptor() {
  MutexLock held(writerLock);
  return file != nullptr ? file->descriptor() : -1;
}

bool Quil::outputEmpty() {
  MutexLock held(writerLock);
  return file != nullptr && file->descriptor() >= 0 && file->isEmpty();
}

bool Quil::Write(const void* data, size_t len) {
  MutexLock held(writerLock);
  const bool wasEmpty = file != nullptr && file->isEmpty();
  const bool written = buffer->Write(data, len);
  if (wasEmpty) {
    SyncFirstText();
  }
  unsynced = true;
  if (!flushSet) {
    SetTimer(kFlushPeriod);
  }
  if (file != nullptr && file->isOver()) {
    over = true;
  }
  return written;
}

bool Quil::Flush() {
  MutexLock held(writerLock);
  return FlushBuffer();
}

void Quil::FlushUnlessBusy() {
  if (writerLock.TryLock()) {
    FlushBuffer();
    writerLock.Unlock();
  }
}

/// False: there is text that no file took.
bool Quil::FlushBuffer() {
  const bool flushed = buffer->Flush();
  SyncFirstText();
  over = over || (file != nullptr && file->isOver());
  if (over && !flushed) {
    ThreadBase::wake(waker);
  }
  return flushed;
}

void* Quil::timer_thread(void* writer) {
  struct sigaction action = {};
  action.sa_handler = thread_exit_handler;
  sigemptyset(&action.sa_mask);
  if (sigaction(SIGUSR1, &action, nullptr) != 0) {
    fprintf(stderr, "Quil:sigaction failed\n");
  }
  // SIGUSR1 is blocked in this thread since it was created; only the sleep lets it in.
  sigset_t whileAsleep;
  pthread_sigmask(SIG_SETMASK, nullptr, &whileAsleep);
  sigdelset(&whileAsleep, SIGUSR1);
  static_cast<Quil*>(writer)->RunTimer(whileAsleep);
  return nullptr;
}

/// Has the calling thread end after its sleep: to end it here would unwind it inside a signal handler.
void Quil::thread_exit_handler(int) {
  exitRequested = 1;
}

void Quil::RunTimer(const sigset_t& whileAsleep) {
  // Where no descriptor was to be had for the timer, poll passes over its place.
  pollfd timer = {flushTimer, POLLIN, 0};
  const timespec* longestSleep = flushTimer < 0 ? &kFlushPeriod : nullptr;
  while (exitRequested == 0) {
    if (ppoll(&timer, 1, longestSleep, &whileAsleep) >= 0) {
      Acknowledge(flushTimer);
      FlushByTimer();
    }
  }
}

void Quil::FlushByTimer() {
  MutexLock held(writerLock);
  flushSet = false;
  const bool flushed = FlushBuffer();
  SyncWhenDue();
  if (!flushed) {
    // No text may come that would have it tried again.
    SetTimer(kFlushPeriod);
    unsynced = true;
  }
}

/// Has the current file brought to disk if it is new and holds text.
void Quil::SyncFirstText() {
  if (file != nullptr && !file->isEmpty() && newFile.Sync(file->descriptor(), &syncs)) {
    lastSync = MonotonicSeconds();
    unsynced = false;
  }
}

/// Has the current file brought to disk if that is due now. Otherwise the timer goes off when it will be, though no
/// more text should come; while a sync is under way, in a flush period.
void Quil::SyncWhenDue() {
  if (syncPeriod == 0 || !unsynced || file == nullptr) {
    return;
  }
  const time_t now = MonotonicSeconds();
  time_t wait = lastSync != 0 ? lastSync + syncPeriod - now : 0;
  if (wait <= 0 && !syncs.isIdle()) {
    wait = kFlushPeriod.tv_sec;
  }
  if (wait > 0) {
    SetTimer({wait, 0});
    flushSet = wait <= kFlushPeriod.tv_sec;
    return;
  }
  lastSync = now;
  const int own = fcntl(file->descriptor(), F_DUPFD_CLOEXEC, 0);
  unsynced = own < 0 || !syncs.Add({own});
  if (unsynced && own >= 0) {
    close(own);
  }
}

/// Has the timer thread flush after `delay`, instead of at the time that was set before.
void Quil::SetTimer(const timespec& delay) {
  const itimerspec once = {{0, 0}, delay};
  timerfd_settime(flushTimer, 0, &once, nullptr);
  flushSet = true;
}

/// Has a finished file brought to disk; does so itself when the disk does not keep up.
void Quil::SyncFinished(int fd) {
  if (fd >= 0 && !syncs.Add({fd})) {
    syncAndClose(fd);
  }
}
