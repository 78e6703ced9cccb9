#ifndef QUILCAT_PLATFORM_LOCAL_TIME_H_
#define QUILCAT_PLATFORM_LOCAL_TIME_H_

#include <time.h>

/// Puts the local time at `seconds` since 1970 into `local`, in the time zone set now. Like localtime(3) it sees
/// a changed zone, which localtime_r need not; unlike it, any thread may call. False: that time has no local form, and
/// `local` is all zeros.
bool localTime(time_t seconds, tm* local);

#endif  // QUILCAT_PLATFORM_LOCAL_TIME_H_
