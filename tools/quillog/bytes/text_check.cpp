#include "quillog/bytes/text_check.h"

#include <string.h>

#include <algorithm>

namespace {

/// True when `text` has digits where `pattern` has "0" and the pattern's characters elsewhere.
bool Matches(const char* text, const char* pattern) {
  for (; *pattern != '\0'; ++text, ++pattern) {
    if (*pattern == '0' ? *text < '0' || *text > '9' : *text != *pattern) {
      return false;
    }
  }
  return true;
}

/// "21:04:05"; a second may be a leap second.
bool IsClock(const char* text) {
  return memcmp(text, "24", 2) < 0 && text[3] < '6' && (text[6] < '6' || memcmp(text + 6, "60", 2) == 0);
}

/// "<6>[  123.456789] "
bool HasKernelMarks(const char* text, const char* end) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  const auto isNot = [](char wanted) { return [wanted](char c) { return c != wanted; }; };
  if (text == end || *text != '<') {
    return false;
  }
  const char* level = std::find_if_not(text + 1, end, isDigit);
  if (level == text + 1 || end - level < 2 || memcmp(level, ">[", 2) != 0) {
    return false;
  }
  const char* second = std::find_if(level + 2, end, isNot(' '));
  const char* point = std::find_if_not(second, end, isDigit);
  return point > second && end - point > 8 && *point == '.' && std::all_of(point + 1, point + 7, isDigit) &&
         memcmp(point + 7, "] ", 2) == 0;
}

bool IsPossible(char c) {
  constexpr char kAllowed[] = "\t\r\033\001";  // SOH: the kernel's mark of a level
  return static_cast<unsigned char>(c) >= 0x20 ? c != 0x7f : c != '\0' && strchr(kAllowed, c) != nullptr;
}

}  // namespace

size_t TextCheck::TimeLength(const char* text, size_t size) {
  if (size >= kStreamedTime && Matches(text, "00-00 00:00:00.000 ") && IsClock(text + 6)) {
    return kStreamedTime;
  }
  return size >= kPolledTime && Matches(text, "0000-00-00 00:00:00 > ") && IsClock(text + 11) ? kPolledTime : 0;
}

size_t TextCheck::PossibleLength(const char* text, size_t size) {
  const char* before = text;
  const char* line = text;
  for (const char* end = text + size; line < end;) {
    const auto* feed = static_cast<const char*>(memchr(line, '\n', static_cast<size_t>(end - line)));
    if (feed == nullptr) {
      break;
    }
    const bool hasTime = TimeLength(line, static_cast<size_t>(feed - line)) == kStreamedTime;
    const bool hasMarks = hasTime && HasKernelMarks(line + kStreamedTime, feed);
    const bool goesBack = isStreamed && hasTime && memcmp(line, stamp, kStreamedTime) < 0;
    const bool lacks = feed != line && ((isStreamed && !hasTime) || (isKernel && !hasMarks));
    if (goesBack || lacks || !std::all_of(line, feed, IsPossible)) {
      return static_cast<size_t>(before - text);
    }
    isStreamed = hasTime;
    isKernel = hasMarks;
    if (hasTime) {
      memcpy(stamp, line, kStreamedTime);
    }
    before = line;
    line = feed + 1;
  }
  return static_cast<size_t>(line - text);
}
