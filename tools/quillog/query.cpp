#include "quillog/query.h"

bool Query::SetPattern(const std::string& text, const Pattern::How& how, std::string* error) {
  return pattern.Set(text, how, error);
}

void Query::SetTimes(Time first, Time last) {
  since = first;
  until = last;
}

void Query::SetLevels(const Levels::Range& wanted) {
  levels = wanted;
  hasLevels = true;
}

bool Query::Matches(const Line& line) const {
  // Lines before the first that has a time count as older than any time.
  if (since != kNoTime && (line.time == kNoTime || line.time < since)) {
    return false;
  }
  if (until != kNoTime && line.time != kNoTime && line.time > until) {
    return false;
  }
  if (hasLevels && !levels.Holds(LevelOf(line))) {
    return false;
  }
  return !pattern.IsSet() || pattern.Matches(line.text, line.size);
}

int LevelOf(const Line& line) {
  constexpr size_t kStreamedTime = 19;  // "11-22 21:04:05.042 "
  const bool isLong = line.hasOwnTime && line.size > kStreamedTime;
  return isLong ? Levels::At(line.text + kStreamedTime, line.size - kStreamedTime) : Levels::kNone;
}
