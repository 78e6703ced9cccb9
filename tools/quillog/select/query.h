#ifndef QUILCAT_TOOLS_QUILLOG_SELECT_QUERY_H_
#define QUILCAT_TOOLS_QUILLOG_SELECT_QUERY_H_

#include <regex.h>

#include <string>

#include "quillog/lines/line.h"

/// Which lines are wanted.
class Query {
 public:
  Query() = default;
  ~Query();
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;

  /// Takes a POSIX extended expression, once. False: it is none, and `error` says why.
  bool SetPattern(const std::string& expression, bool ignoreCase, bool inverted, std::string* error);
  /// Lines from `first` and up to `last`, both included. kNoTime: no limit.
  void SetTimes(Time first, Time last);

  /// True when every line is wanted, whatever it says.
  bool MatchesAll() const { return !hasPattern && since == kNoTime && until == kNoTime; }
  bool Matches(const Line& line) const;

  /// A place in the first line of [`from`, `end`) that may match the pattern, nullptr when none does.
  const char* Find(const char* from, const char* end) const;

  Time Since() const { return since; }
  Time Until() const { return until; }
  bool HasTimes() const { return since != kNoTime || until != kNoTime; }

 private:
  regex_t pattern = {};
  std::string literal;  ///< what is looked for, if it is a plain text in the same case
  bool hasPattern = false;
  bool invert = false;
  Time since = kNoTime;
  Time until = kNoTime;
};

#endif  // QUILCAT_TOOLS_QUILLOG_SELECT_QUERY_H_
