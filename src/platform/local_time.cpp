#include "platform/local_time.h"

#include <pthread.h>

namespace {

/// The C library has a lock of its own for the time zone, but one that no thread sanitizer sees. Never destroyed: a
/// thread that a close gave up on may hold it while the process exits.
pthread_mutex_t zoneLock = PTHREAD_MUTEX_INITIALIZER;

}  // namespace

bool localTime(time_t seconds, tm* local) {
  pthread_mutex_lock(&zoneLock);
  tzset();
  const bool found = localtime_r(&seconds, local) != nullptr;
  pthread_mutex_unlock(&zoneLock);
  if (!found) {
    *local = {};
  }
  return found;
}
