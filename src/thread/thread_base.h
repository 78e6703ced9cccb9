#ifndef QUILCAT_THREAD_THREAD_BASE_H_
#define QUILCAT_THREAD_THREAD_BASE_H_

#include <pthread.h>
#include <semaphore.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>

/// A thread with a virtual body, that can be asked to stop.
///
/// A request to stop is a flag; whoever stops the thread then sends it a wake signal (SIGURG, whose handler does
/// nothing) every few milliseconds until it has ended, so that a call in which it is blocked returns with EINTR. The
/// calls of interruptible.h look at the flag then.
///
/// One thread owns the object: it alone calls start(), wait(), stop() and the destructor.
class ThreadBase {
 public:
  ThreadBase();
  /// Frees the handle. The thread must have been joined: a derived class stops it in its own destructor.
  virtual ~ThreadBase();
  ThreadBase(const ThreadBase&) = delete;
  ThreadBase& operator=(const ThreadBase&) = delete;

  virtual void run() = 0;

  /// Creates the thread, which calls run(). True when it was created. Once for each object.
  bool start();

  /// Joins the thread if it was started and not joined yet.
  void wait();

  /// Sets the flag, for any thread to call; does not wait.
  void requestStop();

  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kWakePeriod{2};

  /// Interrupts the call in which the thread is blocked, if it runs.
  void wake();

  /// The same for thread `id` of this process (gettid). Does nothing for 0 or a thread that has ended. Any thread may
  /// call.
  static void wake(pid_t id);

  /// Called by the thread when a call of interruptible.h was interrupted though nobody asked the thread to stop. The
  /// call is then repeated.
  virtual void woken() {}

  /// Asks the thread to stop, wakes it until it has ended, and joins it.
  void stop();

  /// True when no thread runs: never started, or run() has returned.
  bool hasEnded() const;

  /// Has the thread post `semaphore`, not owned, after run() has returned. Before start().
  void postAtEnd(sem_t* semaphore);

  /// True when the calling thread is the thread of a ThreadBase that was asked to stop.
  static bool currentStopRequested();

  /// Calls woken() if the calling thread is the thread of a ThreadBase.
  static void currentWoken();

 private:
  static void* threadbase_proxy_func(void* object);

  pthread_t* thread;  ///< null when there was no memory for it
  sem_t* endSemaphore = nullptr;
  std::atomic<bool> stopRequested{false};
  std::atomic<bool> ended{true};
  bool joinable = false;
};

#endif  // QUILCAT_THREAD_THREAD_BASE_H_
