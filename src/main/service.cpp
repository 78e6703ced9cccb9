#include "main/service.h"

#include <errno.h>
#include <poll.h>
#include <semaphore.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <initializer_list>
#include <thread>

#include "collect/quilcat.h"
#include "config/quil_config.h"
#include "thread/mutex.h"

using namespace QuilCommon;

namespace {

struct WorkerNode {
  Quilcat* worker;  ///< owned
  WorkerNode* next;
};

/// How long threads may take to end once the service is closed. A thread in a call that no signal ends must not keep
/// the process from its end.
constexpr std::chrono::seconds kClosePatience{2};
constexpr unsigned kCloseLimitSeconds = 5;

/// How many outputs are set up at once, each with a child process that changes owners, and how long one may take before
/// the service continues without it.
constexpr size_t kSetUpsAtOnce = 4;
constexpr std::chrono::seconds kSetUpPatience{1};

constexpr int kReportPatience = 1000;  // milliseconds

QuilcatInfo_t* serviceInfo = nullptr;

/// Held for moments only: the main thread closes while a step starts or releases collectors.
Mutex listLock;
WorkerNode* workerList GUARDED_BY(listLock) = nullptr;  ///< the collector started last comes first

/// Posted by the close handler and by each thread that ends.
sem_t wakeMain;
std::atomic<int> closeSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "the close handler stores to it");

/// The thread of runClosable().
class Step : public ThreadBase {
 public:
  explicit Step(void (*function)()) : body(function) {}
  void run() override { body(); }

 private:
  void (*body)();
};

/// Blocks or unblocks signals in the calling thread, and so in every thread that it creates later.
void ChangeSignalMask(int how, std::initializer_list<int> numbers) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : numbers) {
    sigaddset(&signals, number);
  }
  pthread_sigmask(how, &signals, nullptr);
}

void WaitForWake() {
  while (sem_wait(&wakeMain) != 0 && errno == EINTR) {
  }
}

void AddWorker(WorkerNode* node) {
  MutexLock held(listLock);
  node->next = workerList;
  workerList = node;
}

/// Takes the first worker off the list; null: there is none.
Quilcat* TakeWorker() {
  MutexLock held(listLock);
  WorkerNode* node = workerList;
  if (node == nullptr) {
    return nullptr;
  }
  workerList = node->next;
  Quilcat* worker = node->worker;
  free(node);
  return worker;
}

/// Takes every worker. The number of those for which `count` gives true.
size_t CountWorkers(bool (*count)(Quilcat& worker)) {
  MutexLock held(listLock);
  size_t number = 0;
  for (const WorkerNode* node = workerList; node != nullptr; node = node->next) {
    number += count(*node->worker) ? 1 : 0;
  }
  return number;
}

bool AllHaveEnded() {
  return CountWorkers([](Quilcat& worker) { return !worker.hasEnded(); }) == 0;
}

/// Asks the threads of all collectors to stop and wakes them. True: all have ended.
bool StopCollectors() {
  const auto runsOn = [](Quilcat& worker) {
    worker.wakeToStop();
    return !worker.haveThreadsEnded();
  };
  return CountWorkers(runsOn) == 0;
}

/// Asks the collectors' threads and `step`, which may add some until it ends, to stop, and wakes them until all have
/// ended, or until the patience is over; then joins `step`. False: `step` still runs.
bool StopThreads(Step* step) {
  const auto deadline = ThreadBase::Clock::now() + kClosePatience;
  const auto stepHasEnded = [step] { return step == nullptr || step->hasEnded(); };
  const auto haveAllEnded = [&stepHasEnded] {
    const bool addsNone = stepHasEnded();  // asked first: until then there may be a collector more
    return StopCollectors() && addsNone;
  };
  while (!haveAllEnded() && ThreadBase::Clock::now() < deadline) {
    if (step != nullptr) {
      step->requestStop();
      step->wake();
    }
    std::this_thread::sleep_for(ThreadBase::kWakePeriod);
  }
  if (step != nullptr && step->hasEnded()) {
    step->wait();
  }
  return stepHasEnded();
}

/// Brings the text of all to their files, before the first one waits for the disk.
void FlushWorkers() {
  MutexLock held(listLock);
  for (WorkerNode* node = workerList; node != nullptr; node = node->next) {
    node->worker->flushUnlessBusy();
  }
}

bool IsAnyWriting() {
  return CountWorkers([](Quilcat& worker) { return !worker.hasEnded() && worker.isWriting(); }) != 0;
}

/// Destroys the workers. One that did not end is left alone, since its thread still uses it. False: there was such a
/// one.
bool DestroyWorkers() {
  FlushWorkers();
  if (IsAnyWriting()) {
    // The disk that blocks a worker with text in hand would block the exit too.
    StopThreads(nullptr);
    FlushWorkers();
  }
  bool allEnded = true;
  while (Quilcat* worker = TakeWorker()) {
    if (worker->hasEnded()) {
      delete worker;
    } else {
      allEnded = false;
    }
  }
  return allEnded;
}

/// The last resort of a close that a stuck disk or a full pipe at standard error holds up.
void ExitAtOnce(int) {
  _exit(closeSignal);
}

/// Says that the service closes. A full pipe that nobody reads must not hold up the text that waits for its file.
void ReportClose() {
  pollfd errors = {STDERR_FILENO, POLLOUT, 0};
  int ready;
  do {
    ready = poll(&errors, 1, kReportPatience);
  } while (ready < 0 && errno == EINTR);
  if (ready > 0) {
    fprintf(stderr, "debug closelogcat by signal\n");
  }
}

/// Closes the service; `step` is what runs beside the workers, or null.
[[noreturn]] void Close(Step* step) {
  signal(SIGALRM, ExitAtOnce);
  alarm(kCloseLimitSeconds);
  ReportClose();
  const bool stepEnded = StopThreads(step);
  const bool workersEnded = DestroyWorkers();
  if (stepEnded && workersEnded) {
    QuilConfig::free_config_file(serviceInfo);
  }
  exit(closeSignal);
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
  AddWorker(node);
}

size_t CountSetUps() {
  return CountWorkers([](Quilcat& worker) { return !worker.isSetUp(); });
}

/// Waits until at most `most` outputs are being set up. False: the thread is to stop, or for as long as one output may
/// take none was finished.
bool WaitForSetUps(size_t most) {
  size_t last = SIZE_MAX;
  auto deadline = ThreadBase::Clock::time_point::max();
  for (size_t count; (count = CountSetUps()) > most;) {
    if (count != last) {
      last = count;
      deadline = ThreadBase::Clock::now() + kSetUpPatience;
    }
    if (ThreadBase::currentStopRequested() || ThreadBase::Clock::now() >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(ThreadBase::kWakePeriod);
  }
  return true;
}

/// Starts the collectors, and waits for their outputs unless something blocks them.
void StartCollectors() {
  bool isHeldUp = false;
  QuilcatGroup_t* group = serviceInfo->group_list;
  for (; group != nullptr && !ThreadBase::currentStopRequested(); group = group->next) {
    StartCollector(group);
    isHeldUp = isHeldUp || !WaitForSetUps(kSetUpsAtOnce - 1);
  }
  WaitForSetUps(0);
}

/// The record stays while a close that came meanwhile may be destroying other workers, which use it.
void Release() {
  StopThreads(nullptr);
  DestroyWorkers();
  if (!ThreadBase::currentStopRequested()) {
    QuilConfig::free_config_file(serviceInfo);
  }
}

}  // namespace

void closequilcats(int signalNumber) {
  const int savedErrno = errno;
  int none = 0;
  closeSignal.compare_exchange_strong(none, signalNumber);
  sem_post(&wakeMain);
  errno = savedErrno;
}

void Service::start(QuilcatInfo_t* info) {
  serviceInfo = info;
  sem_init(&wakeMain, 0, 0);
  // SIGUSR1 is for the timer threads of the writers. A step creates those, so it would arrive here first.
  if (info->writeMode == WRITE_MMAP) {
    ChangeSignalMask(SIG_BLOCK, {SIGUSR1});
  }
  signal(SIGUSR2, closequilcats);
  signal(SIGTERM, closequilcats);
  runClosable(StartCollectors);
}

void Service::runClosable(void (*body)()) {
  Step step(body);
  step.postAtEnd(&wakeMain);
  // The main thread alone takes them.
  ChangeSignalMask(SIG_BLOCK, {SIGUSR2, SIGTERM});
  if (!step.start()) {
    body();
  }
  ChangeSignalMask(SIG_UNBLOCK, {SIGUSR2, SIGTERM});
  while (closeSignal == 0 && !step.hasEnded()) {
    WaitForWake();
  }
  if (closeSignal != 0) {
    Close(&step);
  }
  step.wait();
}

void Service::waitForClose() {
  while (closeSignal == 0 && !AllHaveEnded()) {
    WaitForWake();
  }
  if (closeSignal == 0) {
    runClosable(Release);
  }
  while (closeSignal == 0) {
    WaitForWake();
  }
  Close(nullptr);
}
