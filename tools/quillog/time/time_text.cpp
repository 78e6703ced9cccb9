#include "quillog/time/time_text.h"

#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

namespace TimeText {
namespace {

bool IsLeap(int year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int DaysOfMonth(int year, int month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeap(year) ? 29 : kDays[month - 1];
}

Time OfClock(int hour, int minute, int second) {
  return hour * kHour + minute * kMinute + second * kSecond;
}

Time FromLocal(time_t seconds) {
  tm local = {};
  if (localtime_r(&seconds, &local) == nullptr) {
    return kNoTime;
  }
  const Time day = FromDate(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
  return day == kNoTime ? kNoTime : day + OfClock(local.tm_hour, local.tm_min, local.tm_sec);
}

/// "21:04" or "21:04:05", all of `text`.
bool ParseClock(const char* text, Time* clock) {
  int hour = 0;
  int minute = 0;
  int second = 0;
  int length = 0;
  if (sscanf(text, "%2d:%2d%n:%2d%n", &hour, &minute, &length, &second, &length) < 2 || text[length] != '\0') {
    return false;
  }
  *clock = OfClock(hour, minute, second);
  return isdigit(static_cast<unsigned char>(text[0])) && hour >= 0 && hour < 24 && minute >= 0 && minute < 60 &&
         second >= 0 && second < 61;
}

/// The last year in which that day is not more than a month after `newest`.
Time LastSuchDay(int month, int day, Time newest) {
  for (int year = YearOf(newest) + 1; year > YearOf(newest) - 8; --year) {
    const Time time = FromDate(year, month, day);
    if (time != kNoTime && time <= newest + kMonth) {
      return time;
    }
  }
  return kNoTime;
}

bool ParseAgo(const std::string& text, Time* time) {
  const size_t ago = text.rfind(" ago");
  Time duration = 0;
  if (ago == std::string::npos || ago + 4 != text.size() || !ParseDuration(text.substr(0, ago), &duration)) {
    return false;
  }
  *time = Now() - duration;
  return true;
}

}  // namespace

Time FromDate(int year, int month, int day) {
  if (year < 1900 || year > 9999 || month < 1 || month > 12 || day < 1 || day > DaysOfMonth(year, month)) {
    return kNoTime;
  }
  tm date = {};
  date.tm_year = year - 1900;
  date.tm_mon = month - 1;
  date.tm_mday = day;
  return static_cast<Time>(timegm(&date)) * kSecond;
}

int YearOf(Time time) {
  const time_t seconds = static_cast<time_t>((time - (time < 0 ? kSecond - 1 : 0)) / kSecond);
  tm date = {};
  return gmtime_r(&seconds, &date) != nullptr ? date.tm_year + 1900 : 0;
}

Time Now() {
  return FromLocal(time(nullptr));
}

Time FromSeconds(int64_t unixSeconds) {
  return FromLocal(static_cast<time_t>(unixSeconds));
}

std::string Iso(Time time, bool milliseconds) {
  const time_t seconds = static_cast<time_t>((time - (time < 0 ? kSecond - 1 : 0)) / kSecond);
  tm date = {};
  gmtime_r(&seconds, &date);
  char text[48];
  const size_t length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &date);
  if (milliseconds) {
    snprintf(text + length, sizeof text - length, ".%03d",
             static_cast<int>(time - static_cast<Time>(seconds) * kSecond));
  }
  return text;
}

Time FromStamp(const std::string& stamp) {
  int year = 0;
  int month = 0;
  int day = 0;
  int clock[3] = {};
  int length = 0;
  if (sscanf(stamp.c_str(), "%4d%2d%2d-%2d%2d%2d%n", &year, &month, &day, &clock[0], &clock[1], &clock[2], &length) <
          6 ||
      static_cast<size_t>(length) != stamp.size()) {
    return kNoTime;
  }
  const Time date = FromDate(year, month, day);
  return date == kNoTime ? kNoTime : date + OfClock(clock[0], clock[1], clock[2]);
}

bool ParseDuration(const std::string& text, Time* duration) {
  char* end = nullptr;
  const long number = strtol(text.c_str(), &end, 10);
  if (text.empty() || !isdigit(static_cast<unsigned char>(text[0])) || number > 100000000) {
    return false;
  }
  const std::string unit = end;
  const Time length = unit == "s" ? kSecond : unit == "m" ? kMinute : unit == "h" ? kHour : unit == "d" ? kDay : 0;
  *duration = number * length;
  return length != 0;
}

bool Parse(const std::string& text, Time newest, Time* time) {
  if (ParseAgo(text, time)) {
    return true;
  }
  const Time reference = newest != kNoTime ? newest : Now();
  Time date = reference - (reference % kDay + kDay) % kDay;
  int year = 0;
  int month = 0;
  int day = 0;
  int length = 0;
  if (sscanf(text.c_str(), "%4d-%2d-%2d%n", &year, &month, &day, &length) == 3) {
    date = FromDate(year, month, day);
  } else if (sscanf(text.c_str(), "%2d-%2d%n", &month, &day, &length) == 2) {
    date = LastSuchDay(month, day, reference);
  } else {
    length = 0;
  }
  const char* rest = text.c_str() + length;
  Time clock = 0;
  const bool hasClock = ParseClock(rest + (length > 0 && (*rest == ' ' || *rest == 'T') ? 1 : 0), &clock);
  const bool dateAlone = length > 0 && *rest == '\0';
  if (date == kNoTime || (!hasClock && !dateAlone)) {
    return false;
  }
  *time = date + clock;
  return true;
}

}  // namespace TimeText
