#include "quillog/time/time_text.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <time.h>

namespace TimeText {
namespace {

constexpr Time kLongest = 100 * 366 * kDay;
constexpr char kForms[] =
    "no time, as \"2026-11-22 21:04:05\", \"11-22 21:04\", \"21:04\", \"yesterday\", \"2 hours ago\" or "
    "\"@1830000000\"";

bool IsLeap(int year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int DaysOfMonth(int year, int month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeap(year) ? 29 : kDays[month - 1];
}

/// The seconds since 1970 that are full.
int64_t Seconds(Time time) {
  return time / kSecond - (time % kSecond < 0 ? 1 : 0);
}

Time StartOf(Time time, Time unit) {
  return time - (time % unit + unit) % unit;
}

int OffsetAtUnix(int64_t seconds) {
  const auto time = static_cast<time_t>(seconds);
  tm local = {};
  return localtime_r(&time, &local) != nullptr ? static_cast<int>(local.tm_gmtoff) : 0;
}

/// The wall clock that many milliseconds after 1970-01-01T00:00Z.
Time FromUnix(Time time) {
  // A day less on each side leaves room for the offset.
  const bool isInReach = time > FromDate(1900, 1, 2) && time < FromDate(9999, 12, 31);
  return isInReach ? time + OffsetAtUnix(Seconds(time)) * kSecond : kNoTime;
}

Time NowOfUnix() {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<Time>(now.tv_sec) * kSecond + now.tv_nsec / 1000000;
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

/// A text that is read from its beginning.
class Typed {
 public:
  explicit Typed(const std::string& text) : at(text.c_str()) { SkipBlanks(); }

  bool IsAtEnd() const { return at[strspn(at, kBlanks)] == '\0'; }
  bool StartsWithDigits(size_t count) const { return Digits() == count; }
  void SkipBlanks() { at += strspn(at, kBlanks); }
  bool Take(char c) { return *at == c && ++at != nullptr; }

  /// Digits, of which there are not more than `most`.
  bool TakeNumber(size_t most, int64_t* number) {
    const size_t digits = Digits();
    if (digits == 0 || digits > most) {
      return false;
    }
    for (*number = 0; IsDigit(*at); ++at) {
      *number = *number * 10 + (*at - '0');
    }
    return true;
  }
  bool TakeNumber(size_t most, int* number) {
    int64_t wide = 0;
    const bool isTaken = TakeNumber(most, &wide);
    *number = isTaken ? static_cast<int>(wide) : *number;
    return isTaken;
  }

  /// All letters that come next, if they are that word in either case.
  bool TakeWord(const char* word) {
    const size_t size = strlen(word);
    const size_t letters = Letters();
    if (letters != size || strncasecmp(at, word, size) != 0) {
      return false;
    }
    at += size;
    return true;
  }

  /// ".042" or ",042": milliseconds, of digits after a second. True where there is none.
  bool TakeFraction(Time* fraction) {
    if (*at != '.' && *at != ',') {
      return true;
    }
    ++at;
    const size_t digits = Digits();
    for (Time unit = kSecond / 10; IsDigit(*at); ++at, unit /= 10) {
      *fraction += (*at - '0') * unit;
    }
    return digits > 0 && digits <= 9;
  }

 private:
  static bool IsDigit(char c) { return c >= '0' && c <= '9'; }
  size_t Digits() const { return strspn(at, "0123456789"); }
  size_t Letters() const { return strspn(at, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"); }

  static constexpr char kBlanks[] = " \t";

  const char* at;
};

/// The length of a unit that is named next; 0: none is.
Time TakeUnit(Typed* typed) {
  static constexpr struct {
    Time length;
    const char* names[6];
  } kUnits[] = {{1, {"ms", "msec", "millisecond", "milliseconds"}},
                {kSecond, {"s", "sec", "secs", "second", "seconds"}},
                {kMinute, {"m", "min", "mins", "minute", "minutes"}},
                {kHour, {"h", "hr", "hrs", "hour", "hours"}},
                {kDay, {"d", "day", "days"}},
                {7 * kDay, {"w", "week", "weeks"}}};
  typed->SkipBlanks();
  for (const auto& unit : kUnits) {
    for (const char* const name : unit.names) {
      if (name != nullptr && typed->TakeWord(name)) {
        return unit.length;
      }
    }
  }
  return 0;
}

/// "1h30m", "2 hours 5 minutes": as many numbers with units as there are, one at least.
bool TakeDuration(Typed* typed, Time* duration) {
  *duration = 0;
  int64_t number = 0;
  bool isAny = false;
  for (typed->SkipBlanks(); typed->TakeNumber(12, &number); typed->SkipBlanks()) {
    const Time unit = TakeUnit(typed);
    if (unit == 0 || number > kLongest / unit) {
      return false;
    }
    *duration += number * unit;
    isAny = true;
  }
  return isAny && *duration <= kLongest;
}

/// "2 hours ago", "-2h", "now".
bool ReadRelative(Typed typed, Time* time) {
  Time duration = 0;
  const bool isNegative = typed.Take('-');
  if (!isNegative && typed.TakeWord("now")) {
    *time = Now();
    return typed.IsAtEnd();
  }
  if (!TakeDuration(&typed, &duration) || (!isNegative && !typed.TakeWord("ago"))) {
    return false;
  }
  *time = FromUnix(NowOfUnix() - duration);
  return typed.IsAtEnd() && *time != kNoTime;
}

/// "@1830000000".
bool ReadUnix(Typed typed, Time* time) {
  int64_t seconds = 0;
  Time fraction = 0;
  if (!typed.Take('@') || !typed.TakeNumber(12, &seconds) || !typed.TakeFraction(&fraction)) {
    return false;
  }
  *time = FromUnix(seconds * kSecond + fraction);
  return typed.IsAtEnd() && *time != kNoTime;
}

/// What the parts of a time say. kNoTime in one that is there: it says what is not.
struct Parts {
  bool hasDay = false;
  bool hasYear = false;
  Time day = 0;
  bool hasClock = false;
  Time clock = 0;
  bool hasZone = false;
  Time offset = 0;  ///< east of UTC
};

/// "2026-11-22", "11-22", "today", "yesterday".
void TakeDay(Typed* typed, Time reference, Parts* parts) {
  Typed next = *typed;
  int year = 0;
  int month = 0;
  int day = 0;
  if (next.TakeWord("today")) {
    parts->day = StartOf(Now(), kDay);
  } else if (next.TakeWord("yesterday")) {
    parts->day = StartOf(Now(), kDay) - kDay;
  } else {
    parts->hasYear = next.StartsWithDigits(4) && next.TakeNumber(4, &year) && next.Take('-');
    if (!next.TakeNumber(2, &month) || !next.Take('-') || !next.TakeNumber(2, &day)) {
      return;
    }
    parts->day = parts->hasYear ? FromDate(year, month, day) : LastSuchDay(month, day, reference);
  }
  parts->hasDay = true;
  *typed = next;
}

/// "21:04", "21:04:05.042".
void TakeClock(Typed* typed, Parts* parts) {
  Typed next = *typed;
  int hour = 0;
  int minute = 0;
  int second = 0;
  Time fraction = 0;
  if (!next.TakeNumber(2, &hour) || !next.Take(':') || !next.TakeNumber(2, &minute) ||
      (next.Take(':') && !(next.TakeNumber(2, &second) && next.TakeFraction(&fraction)))) {
    return;
  }
  const Time clock = FromClock(hour, minute, second);
  parts->clock = clock == kNoTime ? kNoTime : clock + fraction;
  parts->hasClock = true;
  *typed = next;
}

/// "Z", "+01:00", "-0330", "+01".
void TakeZone(Typed* typed, Parts* parts) {
  Typed next = *typed;
  next.SkipBlanks();
  const bool isWest = next.Take('-');
  int hours = 0;
  int minutes = 0;
  if (isWest || next.Take('+')) {
    const bool isJoined = next.StartsWithDigits(4);
    if (!next.TakeNumber(isJoined ? 4 : 2, &hours) || (next.Take(':') && !next.TakeNumber(2, &minutes))) {
      return;
    }
    const Time offset = isJoined ? FromClock(hours / 100, hours % 100, 0) : FromClock(hours, minutes, 0);
    parts->offset = offset == kNoTime || !isWest ? offset : -offset;
  } else if (!next.TakeWord("Z")) {
    return;
  }
  parts->hasZone = true;
  *typed = next;
}

}  // namespace

void UseUtc() {
  setenv("TZ", "UTC0", 1);
  tzset();
}

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

Time FromClock(int hour, int minute, int second) {
  const bool isShown = hour >= 0 && hour < 24 && minute >= 0 && minute < 60 && second >= 0 && second < 61;
  return isShown ? hour * kHour + minute * kMinute + second * kSecond : kNoTime;
}

int YearOf(Time time) {
  const time_t seconds = static_cast<time_t>(Seconds(time));
  tm date = {};
  return gmtime_r(&seconds, &date) != nullptr ? date.tm_year + 1900 : 0;
}

Time Now() {
  return FromUnix(NowOfUnix());
}

Time FromSeconds(int64_t unixSeconds) {
  return FromUnix(unixSeconds * kSecond);
}

int OffsetAt(Time time) {
  const int64_t seconds = Seconds(time);
  return OffsetAtUnix(seconds - OffsetAtUnix(seconds));
}

std::string Iso(Time time, bool milliseconds) {
  const time_t seconds = static_cast<time_t>(Seconds(time));
  tm date = {};
  gmtime_r(&seconds, &date);
  char text[48];
  const size_t length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &date);
  if (milliseconds) {
    snprintf(text + length, sizeof text - length, ".%03d", static_cast<int>(time - StartOf(time, kSecond)));
  }
  return text;
}

void ZonedIso::Append(std::string& text, Time time) {
  if (minute == kNoTime || StartOf(time, kMinute) != minute) {
    constexpr size_t kSeconds = 3;  // "05Z" and ":05"
    minute = StartOf(time, kMinute);
    start = Iso(minute, false);
    start.resize(start.size() - kSeconds + 1);
    const int east = OffsetAt(minute) / 60;
    char zone[16];
    snprintf(zone, sizeof zone, "%c%02d:%02d", east < 0 ? '-' : '+', abs(east) / 60 % 100, abs(east) % 60);
    offset = east == 0 ? "Z" : zone;
  }
  const auto rest = static_cast<unsigned>(time - minute);
  const char clock[] = {static_cast<char>('0' + rest / 10000),
                        static_cast<char>('0' + rest / 1000 % 10),
                        '.',
                        static_cast<char>('0' + rest / 100 % 10),
                        static_cast<char>('0' + rest / 10 % 10),
                        static_cast<char>('0' + rest % 10)};
  text += start;
  text.append(clock, sizeof clock);
  text += offset;
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
  const Time time = FromClock(clock[0], clock[1], clock[2]);
  return date == kNoTime || time == kNoTime ? kNoTime : date + time;
}

bool ParseDuration(const std::string& text, Time* duration) {
  Typed typed(text);
  return TakeDuration(&typed, duration) && typed.IsAtEnd();
}

bool Parse(const std::string& text, Time newest, Time* time, std::string* why) {
  Typed typed(text);
  if (ReadRelative(typed, time) || ReadUnix(typed, time)) {
    return true;
  }
  const Time reference = newest != kNoTime ? newest : Now();
  Parts parts;
  TakeDay(&typed, reference, &parts);
  typed.SkipBlanks();
  const bool needsClock = !parts.hasDay || typed.TakeWord("T");
  TakeClock(&typed, &parts);
  TakeZone(&typed, &parts);
  if ((needsClock && !parts.hasClock) || !typed.IsAtEnd()) {
    *why = kForms;
  } else if (parts.day == kNoTime) {
    *why = "no such day";
  } else if (parts.clock == kNoTime) {
    *why = "no such time of day; the last is 23:59:59";
  } else if (parts.offset == kNoTime) {
    *why = "no such time zone";
  } else if (parts.hasZone && !(parts.hasYear && parts.hasClock)) {
    *why = "a time zone needs a date with its year and a time of day";
  } else {
    const Time wall = (parts.hasDay ? parts.day : StartOf(reference, kDay)) + parts.clock;
    *time = parts.hasZone ? FromUnix(wall - parts.offset) : wall;
    *why = *time == kNoTime ? kForms : "";
  }
  return why->empty();
}

}  // namespace TimeText
