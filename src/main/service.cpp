#include "main/service.h"

#include <errno.h>
#include <semaphore.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>

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

QuilcatInfo_t* serviceInfo = nullptr;
WorkerNode* workerList = nullptr;  ///< the collector started last comes first

/// Posted by the close handler and by each worker that ends.
sem_t wakeMain;
std::atomic<int> closeSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "the close handler stores to it");

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

/// Stops every worker. One that does not end in time is taken off the list: what it holds is brought to its file, and
/// it is left alone, since its thread still uses it. False: there was such a one.
bool StopWorkers() {
  bool allEnded = true;
  const auto deadline = ThreadBase::Clock::now() + kClosePatience;
  for (WorkerNode* node = workerList; node != nullptr; node = node->next) {
    node->worker->requestStop();
  }
  for (WorkerNode** link = &workerList; *link != nullptr;) {
    WorkerNode* node = *link;
    if (node->worker->stop(deadline)) {
      link = &node->next;
      continue;
    }
    if (serviceInfo->writeMode == WRITE_MMAP) {
      node->worker->logcatClose();
    }
    *link = node->next;
    allEnded = false;
  }
  return allEnded;
}

[[noreturn]] void Close(int signalNumber) {
  fprintf(stderr, "debug closelogcat by signal\n");
  const bool allEnded = StopWorkers();
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
  for (QuilcatGroup_t* group = info->group_list; group != nullptr; group = group->next) {
    StartCollector(group);
  }
}

void Service::installCloseHandler() {
  signal(SIGUSR2, closequilcats);
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
