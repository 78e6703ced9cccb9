#include "mmaplog/quil.h"

#include <signal.h>
#include <stdio.h>
#include <sys/select.h>
#include <time.h>

namespace {

// Measured from the end of the previous flush.
constexpr timespec kFlushPeriod = {5, 5000};

/// Set in the thread that receives SIGUSR1.
thread_local volatile sig_atomic_t exitRequested = 0;

}  // namespace

Quil::Quil() : buffer(new LogBuffer) {
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
  // The buffer goes first: its last block still goes to the file.
  delete buffer;
  buffer = nullptr;
  delete file;
  file = nullptr;
}

bool Quil::SetOutputPath(const char* path) {
  if (buffer == nullptr) {
    return false;
  }
  MutexLock held(writerLock);
  delete file;
  file = new LogMmap(path);
  buffer->SetupMap(file);
  return file->isMmapOpenSucc();
}

bool Quil::Write(const void* data, size_t len) {
  MutexLock held(writerLock);
  return buffer->Write(data, len);
}

void Quil::Flush() {
  MutexLock held(writerLock);
  buffer->Flush();
}

void Quil::FlushUnlessBusy() {
  if (writerLock.TryLock()) {
    buffer->Flush();
    writerLock.Unlock();
  }
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
  while (exitRequested == 0) {
    pselect(0, nullptr, nullptr, nullptr, &kFlushPeriod, &whileAsleep);
    static_cast<Quil*>(writer)->Flush();
  }
  return nullptr;
}

/// Has the calling thread end after its sleep: to end it here would unwind it inside a signal handler.
void Quil::thread_exit_handler(int) {
  exitRequested = 1;
}
