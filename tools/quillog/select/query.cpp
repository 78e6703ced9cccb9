#include "quillog/select/query.h"

bool Query::SetPattern(const std::string& text, const Pattern::How& how, std::string* error) {
  return pattern.Set(text, how, error);
}

const char* Query::Find(const char* from, const char* end) const {
  return pattern.IsSet() ? pattern.Find(from, end) : from;
}

void Query::SetLevels(const Levels::Range& wanted) {
  levels = wanted;
  hasLevels = true;
}

bool Query::Matches(const Line& line) const {
  if (hasLevels && !levels.Holds(line.head.level)) {
    return false;
  }
  return !pattern.IsSet() || pattern.Matches(line.text, line.size);
}
