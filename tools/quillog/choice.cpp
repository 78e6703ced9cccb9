#include "quillog/choice.h"

#include <stdio.h>

#include <algorithm>

bool Choice::IsOfTime(const Options& options) {
  return options.last != 0 || !options.since.empty() || !options.until.empty();
}

bool Choice::SetRange(const Options& options, Time newest, LogClock& clock, LogReader::Wanted* wanted) {
  Timeline::Range& range = wanted->range;
  if (options.last != 0) {
    const Time own = clock.Newest();
    const Time since = own == kNoTime ? 0 : newest - own;  // its last line, before that of them all
    range = clock.Times().Last(options.last - since);
    wanted->from = since > options.last ? kNoPlace : 0;
  }
  Time* const times[] = {&range.since, &range.until};
  const std::string* texts[] = {&options.since, &options.until};
  for (size_t i = 0; i < 2; ++i) {
    std::string error;
    if (!texts[i]->empty() && !TimeText::Parse(*texts[i], newest, times[i], &error)) {
      fprintf(stderr, "quillog: %s: %s\n", error.c_str(), texts[i]->c_str());
      return false;
    }
  }
  return true;
}

bool Choice::SetBoot(int number, LogClock& clock, LogReader::Wanted* wanted) {
  const std::vector<Boot> boots = clock.Times().Boots();
  const auto count = static_cast<int>(boots.size());
  const int index = number > 0 ? number - 1 : count - 1 + number;
  if (index < 0 || index >= count) {
    fprintf(stderr, "quillog: no boot %d, there %s %d\n", number, count == 1 ? "is" : "are", count);
    return false;
  }
  wanted->from = std::max(wanted->from, boots[static_cast<size_t>(index)].first);
  wanted->end = index + 1 < count ? boots[static_cast<size_t>(index) + 1].first : kNoPlace;
  return true;
}
