#include "platform/local_time.h"

bool localTime(time_t seconds, tm* local) {
  tzset();
  if (localtime_r(&seconds, local) != nullptr) {
    return true;
  }
  *local = {};
  return false;
}
