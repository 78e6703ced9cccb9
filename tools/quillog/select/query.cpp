#include "quillog/select/query.h"

#include <string.h>

Query::~Query() {
  if (hasPattern) {
    regfree(&pattern);
  }
}

bool Query::SetPattern(const std::string& expression, bool ignoreCase, bool inverted, std::string* error) {
  const int result = regcomp(&pattern, expression.c_str(), REG_EXTENDED | REG_NOSUB | (ignoreCase ? REG_ICASE : 0));
  if (result != 0) {
    char text[256];
    regerror(result, &pattern, text, sizeof text);
    *error = text;
    return false;
  }
  const bool isPlain = expression.find_first_of(".[\\()*+?{|^$\n") == std::string::npos && !ignoreCase;
  literal = isPlain ? expression : "";
  hasPattern = true;
  invert = inverted;
  return true;
}

const char* Query::Find(const char* from, const char* end) const {
  return literal.empty() || invert
             ? from
             : static_cast<const char*>(memmem(from, static_cast<size_t>(end - from), literal.data(), literal.size()));
}

void Query::SetTimes(Time first, Time last) {
  since = first;
  until = last;
}

bool Query::Matches(const Line& line) const {
  // Lines before the first that has a time count as older than any time.
  if (since != kNoTime && (line.time == kNoTime || line.time < since)) {
    return false;
  }
  if (until != kNoTime && line.time != kNoTime && line.time > until) {
    return false;
  }
  if (!hasPattern) {
    return true;
  }
  if (!literal.empty()) {
    return (memmem(line.text, line.size, literal.data(), literal.size()) != nullptr) != invert;
  }
  // The line is no C string: its end is given instead.
  regmatch_t range = {};
  range.rm_eo = static_cast<regoff_t>(line.size);
  return (regexec(&pattern, line.text, 1, &range, REG_STARTEND) == 0) != invert;
}
