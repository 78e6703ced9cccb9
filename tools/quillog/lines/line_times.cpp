#include "quillog/lines/line_times.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "quillog/bytes/text_check.h"

namespace {

using namespace TimeText;

constexpr char kCurrentTime[] = "current time: ";

int TwoDigits(const char* text) {
  return (text[0] - '0') * 10 + (text[1] - '0');
}

/// "21:04:05" in milliseconds.
Time Clock(const char* text) {
  return TwoDigits(text) * kHour + TwoDigits(text + 3) * kMinute + TwoDigits(text + 6) * kSecond;
}

Time OfPolled(const char* text) {
  const Time date = FromDate(TwoDigits(text) * 100 + TwoDigits(text + 2), TwoDigits(text + 5), TwoDigits(text + 8));
  return date == kNoTime ? kNoTime : date + Clock(text + 11);
}

/// "current time: 2026-1-2 3:4:5\r"
Time OfCurrentTime(const char* text, size_t size) {
  constexpr size_t kPrefix = sizeof kCurrentTime - 1;
  if (size < kPrefix || memcmp(text, kCurrentTime, kPrefix) != 0) {
    return kNoTime;
  }
  const std::string rest(text + kPrefix, std::min<size_t>(size - kPrefix, 40));
  int date[3] = {};
  int clock[3] = {};
  if (sscanf(rest.c_str(), "%d-%d-%d %d:%d:%d", &date[0], &date[1], &date[2], &clock[0], &clock[1], &clock[2]) != 6) {
    return kNoTime;
  }
  const Time day = FromDate(date[0], date[1], date[2]);
  const bool isClock =
      clock[0] >= 0 && clock[0] < 24 && clock[1] >= 0 && clock[1] < 60 && clock[2] >= 0 && clock[2] < 61;
  return day == kNoTime || !isClock ? kNoTime : day + clock[0] * kHour + clock[1] * kMinute + clock[2] * kSecond;
}

Time Distance(Time a, Time b) {
  return a > b ? a - b : b - a;
}

/// The time offered that is nearest to a time known from lines and names.
struct Nearest {
  Time best = kNoTime;
  Time distance = 0;

  void Offer(Time time, Time from) {
    if (time != kNoTime && from != kNoTime && (best == kNoTime || Distance(time, from) < distance)) {
      best = time;
      distance = Distance(time, from);
    }
  }
  /// The month and day in the years around `from`.
  void OfferYears(int month, int day, Time from, Time latest) {
    for (int year = YearOf(from) - 1; year <= YearOf(from) + 1; ++year) {
      const Time time = FromDate(year, month, day);
      if (year >= 1970 && time <= latest) {
        Offer(time, from);
      }
    }
  }
};

}  // namespace

void LineTimes::StartFile(const FileTimes& times) {
  file = times;
  reference = times.started != kNoTime ? times.started : reference;
  latest = latest != kNoTime ? latest : times.started;
  monthAndDay = 0;
}

Time LineTimes::Next(const char* text, size_t size, bool* own) {
  Time time = kNoTime;
  const size_t length = TextCheck::TimeLength(text, size);
  if (length == TextCheck::kStreamedTime) {
    const int month = TwoDigits(text);
    const int day = TwoDigits(text + 3);
    if (month * 100 + day != monthAndDay) {
      dayStart = OfStreamed(month, day);
      monthAndDay = month * 100 + day;
    }
    time = dayStart == kNoTime ? kNoTime : dayStart + Clock(text + 6) + atoi(text + 15);
  } else if (length == TextCheck::kPolledTime) {
    time = OfPolled(text);
  } else if (size > 0 && text[0] == kCurrentTime[0]) {
    time = OfCurrentTime(text, size);
  }
  *own = time != kNoTime;
  if (*own) {
    latest = time;
    reference = time;
  }
  return latest;
}

/// The start of a day without a year.
Time LineTimes::OfStreamed(int month, int day) {
  Nearest nearest;
  const Time limit = file.after == kNoTime ? INT64_MAX : file.after + kDay;
  if (reference != kNoTime) {
    nearest.OfferYears(month, day, reference, INT64_MAX);
  }
  // A clock that was not set jumps; one that was set runs on.
  if (!IsClockSet(reference)) {
    if (IsClockSet(file.before)) {
      nearest.OfferYears(month, day, file.before, limit);
    }
    if (IsClockSet(file.after)) {
      nearest.OfferYears(month, day, file.after, limit);
    }
  } else if (nearest.best != kNoTime && file.started != kNoTime && nearest.best + kMonth < file.started) {
    // This is months before the file was begun. If the file was still written to a year later, the line is from then.
    const Time later = FromDate(YearOf(nearest.best) + 1, month, day);
    nearest.best = later != kNoTime && later <= limit ? later : nearest.best;
  }
  return nearest.best;
}
