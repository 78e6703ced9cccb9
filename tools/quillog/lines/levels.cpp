#include "quillog/lines/levels.h"

#include <strings.h>

#include <utility>

namespace {

constexpr const char* kNames[] = {"emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"};
/// Further names of some, each in the place of its level.
constexpr const char* kOtherNames[] = {"panic", nullptr, "critical", "error", "warn", nullptr, "information", nullptr};

int FromName(const std::string& name) {
  for (int level = 0; level <= Levels::kMost; ++level) {
    const char* const other = kOtherNames[level];
    if (strcasecmp(name.c_str(), kNames[level]) == 0 || (other != nullptr && strcasecmp(name.c_str(), other) == 0)) {
      return level;
    }
  }
  const bool isNumber = name.size() == 1 && name[0] >= '0' && name[0] <= '0' + Levels::kMost;
  return isNumber ? name[0] - '0' : Levels::kNone;
}

}  // namespace

const char* Levels::Name(int level) {
  return kNames[level];
}

bool Levels::Parse(const std::string& text, Range* range) {
  const size_t dots = text.find("..");
  if (dots == std::string::npos) {
    *range = {0, FromName(text)};
    return range->mildest != kNone;
  }
  const std::string first = text.substr(0, dots);
  const std::string last = text.substr(dots + 2);
  *range = {first.empty() ? 0 : FromName(first), last.empty() ? kMost : FromName(last)};
  if (range->severest > range->mildest) {
    std::swap(range->severest, range->mildest);
  }
  return range->severest != kNone && !(first.empty() && last.empty());
}
