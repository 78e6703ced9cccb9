#include "quillog/select/query.h"

bool Query::SetPattern(const std::string& text, const Pattern::How& how, std::string* error) {
  return pattern.Set(text, how, error);
}

const char* Query::Find(const char* from, const char* end) const {
  return pattern.IsSet() ? pattern.Find(from, end) : from;
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
  if (hasLevels && !levels.Holds(Levels::Of(line))) {
    return false;
  }
  return !pattern.IsSet() || pattern.Matches(line.text, line.size);
}
