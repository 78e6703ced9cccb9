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
  bool isStreamed = false;
  const char* line = text;
  for (const char* end = text + size; line < end;) {
    const auto* feed = static_cast<const char*>(memchr(line, '\n', static_cast<size_t>(end - line)));
    if (feed == nullptr || !std::all_of(line, feed, IsPossible)) {
      break;
    }
    const bool hasTime = TimeLength(line, static_cast<size_t>(feed - line)) == kStreamedTime;
    if (isStreamed && !hasTime && feed != line) {
      break;
    }
    isStreamed = hasTime;
    line = feed + 1;
  }
  return static_cast<size_t>(line - text);
}
