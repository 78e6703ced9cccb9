#include "main/service.h"

#include <errno.h>
#include <semaphore.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "collect/quilcat.h"
#include "config/quil_config.h"

using namespace QuilCommon;

namespace {

struct WorkerNode {
  Quilcat* worker;  ///< owned
  WorkerNode* next;
};

/// How long threads may take to end once the service is closed. One that sits in a call that no signal ends must not
/// hold the process.
constexpr std::chrono::seconds kClosePatience{2};
constexpr unsigned kCloseLimitSeconds = 5;

QuilcatInfo_t* serviceInfo = nullptr;
WorkerNode* workerList = nullptr;  ///< the collector started last comes first

/// Posted by the close handler and by each worker that ends.
sem_t wakeMain;
std::atomic<int> closeSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "the close handler stores to it");

/// Blocks or unblocks SIGUSR2 in the calling thread, and so in every thread that it creates later.
void ChangeCloseSignalMask(int how) {
  sigset_t closing;
  sigemptyset(&closing);
  sigaddset(&closing, SIGUSR2);
  pthread_sigmask(how, &closing, nullptr);
}

void WaitForWake() {
  while (sem_wait(&wakeMain) != 0 && errno == EINTR) {
  }
}

bool AllHaveEnded() {
  for (const WorkerNode* node = workerList; node != nullptr; node = node->next) {
    if (!node->worker->hasEnded()) {
      return false;
    }
  }
  return true;
}

void DestroyWorkers() {
  while (workerList != nullptr) {
    WorkerNode* node = workerList;
    workerList = node->next;
    delete node->worker;
    free(node);
  }
}

/// Asks every worker to stop and wakes them all until they have ended, or until the patience is at its end.
void StopWorkers() {
  const auto deadline = ThreadBase::Clock::now() + kClosePatience;
  for (WorkerNode* node = workerList; node != nullptr; node = node->next) {
    node->worker->requestStop();
  }
  while (!AllHaveEnded() && ThreadBase::Clock::now() < deadline) {
    for (WorkerNode* node = workerList; node != nullptr; node = node->next) {
      node->worker->wake();
    }
    std::this_thread::sleep_for(ThreadBase::kWakePeriod);
  }
}

/// Takes workers that did not end off the list: what they hold is brought to their files, and they are left alone,
/// since their threads still use them. False: there was such a one.
bool LeaveStuckWorkers() {
  bool allEnded = true;
  for (WorkerNode** link = &workerList; *link != nullptr;) {
    WorkerNode* node = *link;
    if (node->worker->hasEnded()) {
      link = &node->next;
      continue;
    }
    node->worker->flushUnlessBusy();
    *link = node->next;
    allEnded = false;
  }
  return allEnded;
}

/// The last resort of a close that a stuck disk or a full pipe at standard error holds up.
void ExitAtOnce(int) {
  _exit(closeSignal);
}

[[noreturn]] void Close(int signalNumber) {
  signal(SIGALRM, ExitAtOnce);
  alarm(kCloseLimitSeconds);
  fprintf(stderr, "debug closelogcat by signal\n");
  StopWorkers();
  const bool allEnded = LeaveStuckWorkers();
  DestroyWorkers();
  if (allEnded) {
    QuilConfig::free_config_file(serviceInfo);
  }
  exit(signalNumber);
}

void StartCollector(QuilcatGroup_t* group) {
  auto* node = static_cast<WorkerNode*>(calloc(1, sizeof(WorkerNode)));
  if (node == nullptr) {
    fprintf(stderr, "Main:quilcat [%s] start failed!\n", serviceInfo->name);
    return;
  }
  node->worker = new Quilcat(group, serviceInfo->writeMode);
  node->worker->postAtEnd(&wakeMain);
  if (!node->worker->start()) {
    fprintf(stderr, "Main:quilcat [%s] start failed!\n", serviceInfo->name);
    delete node->worker;
    free(node);
    return;
  }
  node->next = workerList;
  workerList = node;
}

}  // namespace

void closequilcats(int signalNumber) {
  const int savedErrno = errno;
  closeSignal = signalNumber;
  sem_post(&wakeMain);
  errno = savedErrno;
}

void Service::start(QuilcatInfo_t* info) {
  serviceInfo = info;
  sem_init(&wakeMain, 0, 0);
  // Only the main thread takes it, and not before there is a handler.
  ChangeCloseSignalMask(SIG_BLOCK);
  for (QuilcatGroup_t* group = info->group_list; group != nullptr; group = group->next) {
    StartCollector(group);
  }
}

void Service::installCloseHandler() {
  signal(SIGUSR2, closequilcats);
  ChangeCloseSignalMask(SIG_UNBLOCK);
}

void Service::waitForClose() {
  while (true) {
    if (closeSignal != 0) {
      Close(closeSignal);
    }
    if (serviceInfo != nullptr && AllHaveEnded()) {
      DestroyWorkers();
      QuilConfig::free_config_file(serviceInfo);
      serviceInfo = nullptr;
    }
    WaitForWake();
  }
}
