#ifndef QUILCAT_PLATFORM_LOCAL_TIME_H_
#define QUILCAT_PLATFORM_LOCAL_TIME_H_

#include <time.h>

/// Puts the local time at `seconds` since 1970 into `local`, in the time zone that is set now: as localtime(3), which
/// sees a change where localtime_r need not, but for any thread. False: there is no local time for it, `local` is all
/// zeros.
bool localTime(time_t seconds, tm* local);

#endif  // QUILCAT_PLATFORM_LOCAL_TIME_H_
