#ifndef QUILCAT_TOOLS_QUILLOG_TIME_TIME_TEXT_H_
#define QUILCAT_TOOLS_QUILLOG_TIME_TIME_TEXT_H_

#include <limits.h>
#include <stddef.h>
#include <stdint.h>

#include <string>

/// Milliseconds since 1970-01-01 00:00 on the wall clock of the device. Logs name no time zone, so none is applied:
/// differences across a change of the clock are differences of what the clock showed.
///
/// Only what is absolute needs a zone: now, "@1830000000", times with "Z" or an offset, and the offset that RFC 3339
/// asks for. The device is taken to be in the zone of this machine (TZ), or in that of UseUtc().
using Time = int64_t;
constexpr Time kNoTime = INT64_MIN;

namespace TimeText {

constexpr Time kSecond = 1000;
constexpr Time kMinute = 60 * kSecond;
constexpr Time kHour = 60 * kMinute;
constexpr Time kDay = 24 * kHour;
constexpr Time kMonth = 30 * kDay;

/// From now on wall clocks are taken for UTC's. Call it before anything else here.
void UseUtc();

/// kNoTime for a day that the year does not have.
Time FromDate(int year, int month, int day);
/// The time since midnight, kNoTime for what no clock shows; 23:59:60 is a leap second.
Time FromClock(int hour, int minute, int second);
int YearOf(Time time);
/// A phone that lost its clock begins in 1970. True for a time from 2000 on, as in every log whose clock was set.
inline bool IsClockSet(Time time) {
  return time != kNoTime && YearOf(time) >= 2000;
}

/// The wall clock of now.
Time Now();
/// The wall clock at that time; kNoTime beyond the years 1900 to 9999.
Time FromSeconds(int64_t unixSeconds);
/// Seconds east of UTC when the wall clock shows `time`. Of the hour that a clock shows twice when it is put back this
/// is the second.
int OffsetAt(Time time);

/// "2026-11-22T21:04:05", followed by ".042" with `milliseconds`.
std::string Iso(Time time, bool milliseconds);

/// Writes times as RFC 3339 has them, with the zone: "2026-11-22T21:04:05.042+01:00", or "Z" for an offset of zero. For
/// many lines in a row: what a minute's times share is made once.
class ZonedIso {
 public:
  void Append(std::string& text, Time time);

 private:
  Time minute = kNoTime;
  std::string start;   ///< "2026-11-22T21:04:"
  std::string offset;  ///< "+01:00"
};

/// "20240131-235959", the form used in file names; kNoTime for anything else.
Time FromStamp(const std::string& stamp);

/// "30s", "1h30m", "2 hours", "1 week 2 days", "500ms": milliseconds. False: none of these, or more than 100 years.
bool ParseDuration(const std::string& text, Time* duration);

/// A time as people type it:
///   "2026-11-22", "2026-11-22 21:04", "2026-11-22T21:04:05.042", "11-22", "11-22 21:04", "21:04", "21:04:05"
///   "now", "today", "yesterday", "yesterday 21:04", "2 hours ago", "-2h", which count from now
///   "@1830000000" (seconds of Unix), "2026-11-22T21:04:05Z", "2026-11-22 21:04+01:00"
/// A date or year that is not given is that of `newest`, the newest line of the log: the last such date that is not
/// more than a month later. False: none of these, and `why` says what is wrong.
bool Parse(const std::string& text, Time newest, Time* time, std::string* why);

}  // namespace TimeText

#endif  // QUILCAT_TOOLS_QUILLOG_TIME_TIME_TEXT_H_
