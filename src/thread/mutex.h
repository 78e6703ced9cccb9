#ifndef QUILCAT_THREAD_MUTEX_H_
#define QUILCAT_THREAD_MUTEX_H_

#include <pthread.h>

// clang++ -Wthread-safety checks these; other compilers pass over them.
#if defined(__clang__)
#define QUIL_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define QUIL_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) QUIL_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY QUIL_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) QUIL_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) QUIL_THREAD_ANNOTATION(pt_guarded_by(x))
#define REQUIRES(...) QUIL_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) QUIL_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) QUIL_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) QUIL_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) QUIL_THREAD_ANNOTATION(release_capability(__VA_ARGS__))

/// A pthread_mutex_t, statically initialised, whose holder the compiler can follow.
class CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;
  ~Mutex() { pthread_mutex_destroy(&mutex); }

  void Lock() ACQUIRE() { pthread_mutex_lock(&mutex); }
  bool TryLock() TRY_ACQUIRE(true) { return pthread_mutex_trylock(&mutex) == 0; }
  void Unlock() RELEASE() { pthread_mutex_unlock(&mutex); }

 private:
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
};

/// Holds a Mutex for the life of a scope.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& held) ACQUIRE(held) : mutex(held) { mutex.Lock(); }
  ~MutexLock() RELEASE() { mutex.Unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex;
};

#endif  // QUILCAT_THREAD_MUTEX_H_
