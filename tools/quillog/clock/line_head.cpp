#include "quillog/clock/line_head.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <string_view>

namespace {

using namespace TimeText;

constexpr char kStreamed[] = "00-00 00:00:00.000 ";
constexpr char kPolled[] = "0000-00-00 00:00:00 > ";
constexpr char kCurrentTime[] = "current time: ";

bool IsDigit(char byte) {
  return byte >= '0' && byte <= '9';
}

/// True when `text` begins with digits where `pattern` has "0" and the pattern's characters elsewhere.
template <size_t kSize>
bool Matches(const char* text, size_t size, const char (&pattern)[kSize]) {
  if (size < kSize - 1) {
    return false;
  }
  for (size_t i = 0; i < kSize - 1; ++i) {
    if (pattern[i] == '0' ? !IsDigit(text[i]) : text[i] != pattern[i]) {
      return false;
    }
  }
  return true;
}

int TwoDigits(const char* text) {
  return (text[0] - '0') * 10 + (text[1] - '0');
}

/// False for what no calendar and no clock shows.
bool SetStamp(LineHead& head, int year, int month, int day, const int (&clock)[3], int milliseconds) {
  static constexpr int kDays[] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12 || day < 1 || day > kDays[month - 1] || clock[0] < 0 || clock[0] > 23 || clock[1] < 0 ||
      clock[1] > 59 || clock[2] < 0 || clock[2] > 60) {
    return false;
  }
  head.year = year;
  head.month = month;
  head.day = day;
  head.timeOfDay = clock[0] * kHour + clock[1] * kMinute + clock[2] * kSecond + milliseconds;
  return true;
}

/// "<14>": facility and level.
size_t ParseLevel(const char* text, size_t size, LineHead& head) {
  size_t at = 1;
  int number = 0;
  for (; at < size && at < 5 && IsDigit(text[at]); ++at) {
    number = number * 10 + (text[at] - '0');
  }
  if (size < 3 || text[0] != '<' || at == 1 || at >= size || text[at] != '>') {
    return 0;
  }
  head.level = number & 7;
  return at + 1;
}

/// "[  123.456789] ", or "[  123.456789][    T1] " where kernels name the task.
size_t ParseKernelClock(const char* text, size_t size, LineHead& head) {
  const char* const end = text + std::min<size_t>(size, 80);
  const char* at = text;
  int64_t seconds = 0;
  int64_t micros = 0;
  if (at == end || *at++ != '[') {
    return 0;
  }
  while (at < end && *at == ' ') {
    ++at;
  }
  const char* const digits = at;
  for (; at < end && IsDigit(*at) && at - digits < 10; ++at) {
    seconds = seconds * 10 + (*at - '0');
  }
  if (at == digits || end - at < 3 || *at++ != '.' || !IsDigit(*at)) {
    return 0;
  }
  for (int64_t unit = 100000; at < end && IsDigit(*at); ++at, unit /= 10) {
    micros += unit * (*at - '0');
  }
  if (at == end || *at++ != ']') {
    return 0;
  }
  head.kernelClock = seconds * 1000000 + micros;
  if (at < end && *at == '[') {
    const char* const close = std::find(at, end, ']');
    at = close == end ? at : close + 1;
  }
  return static_cast<size_t>(at - text) + (at < end && *at == ' ' ? 1 : 0);
}

LineHead ParseStreamed(const char* text, size_t size) {
  LineHead head;
  const int clock[] = {TwoDigits(text + 6), TwoDigits(text + 9), TwoDigits(text + 12)};
  const int milliseconds = (text[15] - '0') * 100 + TwoDigits(text + 16);
  if (!SetStamp(head, 0, TwoDigits(text), TwoDigits(text + 3), clock, milliseconds)) {
    return head;
  }
  head.textAt = sizeof kStreamed - 1;
  head.textAt += ParseLevel(text + head.textAt, size - head.textAt, head);
  if (head.level >= 0) {  // other nodes may write numbers in brackets too
    head.textAt += ParseKernelClock(text + head.textAt, size - head.textAt, head);
  }
  return head;
}

LineHead ParsePolled(const char* text) {
  LineHead head;
  const int clock[] = {TwoDigits(text + 11), TwoDigits(text + 14), TwoDigits(text + 17)};
  const int year = TwoDigits(text) * 100 + TwoDigits(text + 2);
  const int month = TwoDigits(text + 5);
  const int day = TwoDigits(text + 8);
  if (FromDate(year, month, day) != kNoTime && SetStamp(head, year, month, day, clock, 0)) {
    head.textAt = sizeof kPolled - 1;
  }
  return head;
}

/// "current time: 2026-1-2 3:4:5\r"
LineHead ParseCurrentTime(const char* text, size_t size) {
  constexpr size_t kPrefix = sizeof kCurrentTime - 1;
  LineHead head;
  if (size < kPrefix || memcmp(text, kCurrentTime, kPrefix) != 0) {
    return head;
  }
  const std::string rest(text + kPrefix, std::min<size_t>(size - kPrefix, 40));
  int date[3] = {};
  int clock[3] = {};
  if (sscanf(rest.c_str(), "%4d-%2d-%2d %2d:%2d:%2d", &date[0], &date[1], &date[2], &clock[0], &clock[1], &clock[2]) ==
          6 &&
      FromDate(date[0], date[1], date[2]) != kNoTime && SetStamp(head, date[0], date[1], date[2], clock, 0)) {
    head.textAt = size;
  }
  return head;
}

}  // namespace

LineHead LineHead::Parse(const char* text, size_t size) {
  if (Matches(text, size, kStreamed)) {
    return ParseStreamed(text, size);
  }
  if (Matches(text, size, kPolled)) {
    return ParsePolled(text);
  }
  return size > 0 && text[0] == kCurrentTime[0] ? ParseCurrentTime(text, size) : LineHead();
}

BootEnd BootEndIn(const char* text, size_t size) {
  static constexpr struct {
    std::string_view begin;
    BootEnd end;
  } kTexts[] = {{"Kernel panic - not syncing", BootEnd::kPanic},
                {"reboot: Restarting system", BootEnd::kRestart},
                {"reboot: Power down", BootEnd::kPowerOff},
                {"reboot: System halted", BootEnd::kPowerOff},
                {"init: Reboot start, reason: shutdown", BootEnd::kPowerOff},
                {"init: Reboot start, reason: ", BootEnd::kRestart}};
  const std::string_view line(text, size);
  for (const auto& known : kTexts) {
    if (line.compare(0, known.begin.size(), known.begin) == 0) {
      return known.end;
    }
  }
  return BootEnd::kUnknown;
}
