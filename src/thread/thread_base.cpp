#include "thread/thread_base.h"

#include <signal.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <thread>

#include "safestr/safestr.h"

namespace {

thread_local ThreadBase* currentThread = nullptr;

/// Not a real-time signal: those are queued, and refused when the user's limit of pending ones is reached.
constexpr int kWakeSignal = SIGURG;

void IgnoreWakeSignal(int) {}

/// Without SA_RESTART, so that a blocked call returns.
void InstallWakeHandler() {
  struct sigaction action = {};
  action.sa_handler = IgnoreWakeSignal;
  sigemptyset(&action.sa_mask);
  sigaction(kWakeSignal, &action, nullptr);
}

}  // namespace

ThreadBase::ThreadBase() : thread(static_cast<pthread_t*>(malloc(sizeof(pthread_t)))) {
  if (thread != nullptr) {
    memset_s(thread, sizeof *thread, 0, sizeof *thread);
  }
}

ThreadBase::~ThreadBase() {
  free(thread);
}

bool ThreadBase::start() {
  if (thread == nullptr) {
    return false;
  }
  InstallWakeHandler();
  ended = false;
  joinable = pthread_create(thread, nullptr, threadbase_proxy_func, this) == 0;
  if (!joinable) {
    ended = true;
  }
  return joinable;
}

void ThreadBase::wait() {
  if (joinable) {
    pthread_join(*thread, nullptr);
    joinable = false;
  }
}

void ThreadBase::requestStop() {
  stopRequested = true;
}

void ThreadBase::wake() {
  if (!hasEnded()) {
    pthread_kill(*thread, kWakeSignal);
  }
}

void ThreadBase::wake(pid_t id) {
  if (id != 0) {
    syscall(SYS_tgkill, getpid(), id, kWakeSignal);  // not every C library has a name for it
  }
}

void ThreadBase::stop() {
  requestStop();
  // Again and again, since the signal can arrive just before the thread blocks.
  while (!hasEnded()) {
    wake();
    std::this_thread::sleep_for(kWakePeriod);
  }
  wait();
}

bool ThreadBase::hasEnded() const {
  return ended;
}

void ThreadBase::postAtEnd(sem_t* semaphore) {
  endSemaphore = semaphore;
}

bool ThreadBase::currentStopRequested() {
  return currentThread != nullptr && currentThread->stopRequested;
}

void ThreadBase::currentWoken() {
  if (currentThread != nullptr) {
    currentThread->woken();
  }
}

void* ThreadBase::threadbase_proxy_func(void* object) {
  auto* self = static_cast<ThreadBase*>(object);
  if (self == nullptr) {
    return nullptr;
  }
  currentThread = self;
  self->run();
  self->ended = true;
  if (self->endSemaphore != nullptr) {
    sem_post(self->endSemaphore);
  }
  return nullptr;
}
