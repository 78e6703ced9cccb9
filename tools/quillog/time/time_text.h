#ifndef QUILCAT_TOOLS_QUILLOG_TIME_TIME_TEXT_H_
#define QUILCAT_TOOLS_QUILLOG_TIME_TIME_TEXT_H_

#include <limits.h>
#include <stddef.h>
#include <stdint.h>

#include <string>

/// Milliseconds since 1970-01-01 00:00 on the wall clock of the device. Logs name no time zone, so none is applied:
/// differences across a change of the clock are differences of what the clock showed.
using Time = int64_t;
constexpr Time kNoTime = INT64_MIN;

namespace TimeText {

constexpr Time kSecond = 1000;
constexpr Time kMinute = 60 * kSecond;
constexpr Time kHour = 60 * kMinute;
constexpr Time kDay = 24 * kHour;
constexpr Time kMonth = 30 * kDay;

/// kNoTime for a day that the year does not have.
Time FromDate(int year, int month, int day);
int YearOf(Time time);
/// A phone that lost its clock begins in 1970. True for a time from 2000 on, as in every log whose clock was set.
inline bool IsClockSet(Time time) {
  return time != kNoTime && YearOf(time) >= 2000;
}

/// The wall clock of now, of this machine.
Time Now();
Time FromSeconds(int64_t unixSeconds);

/// "2026-11-22T21:04:05", followed by ".042" with `milliseconds`.
std::string Iso(Time time, bool milliseconds);

/// "20240131-235959", the form used in file names; kNoTime for anything else.
Time FromStamp(const std::string& stamp);

/// "30s", "5m", "1h", "2d": milliseconds. False: none of these.
bool ParseDuration(const std::string& text, Time* duration);

/// "2026-11-22[ 21:04[:05]]", "11-22[ 21:04[:05]]", "21:04[:05]", "2h ago". A date or year that is not given
/// is that of `newest`, the newest line of the log: the last such date that is not more than a month later. False: none
/// of these.
bool Parse(const std::string& text, Time newest, Time* time);

}  // namespace TimeText

#endif  // QUILCAT_TOOLS_QUILLOG_TIME_TIME_TEXT_H_
