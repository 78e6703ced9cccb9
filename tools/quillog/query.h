#ifndef QUILCAT_TOOLS_QUILLOG_QUERY_H_
#define QUILCAT_TOOLS_QUILLOG_QUERY_H_

#include <string>

#include "quillog/levels.h"
#include "quillog/line.h"
#include "quillog/pattern.h"

/// Which lines are wanted.
class Query {
 public:
  /// See Pattern::Set(). Once.
  bool SetPattern(const std::string& text, const Pattern::How& how, std::string* error);
  /// Lines from `first` and up to `last`, both included. kNoTime: no limit.
  void SetTimes(Time first, Time last);
  /// Lines of these kernel levels, none without a level.
  void SetLevels(const Levels::Range& wanted);

  /// True when every line is wanted, whatever it says.
  bool MatchesAll() const { return !pattern.IsSet() && !hasLevels && since == kNoTime && until == kNoTime; }
  bool Matches(const Line& line) const;

 private:
  Pattern pattern;
  bool hasLevels = false;
  Levels::Range levels;
  Time since = kNoTime;
  Time until = kNoTime;
};

/// The kernel level of a streamed line, Levels::kNone for any other.
int LevelOf(const Line& line);

#endif  // QUILCAT_TOOLS_QUILLOG_QUERY_H_
