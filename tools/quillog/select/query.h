#ifndef QUILCAT_TOOLS_QUILLOG_SELECT_QUERY_H_
#define QUILCAT_TOOLS_QUILLOG_SELECT_QUERY_H_

#include <string>

#include "quillog/lines/levels.h"
#include "quillog/lines/line.h"
#include "quillog/select/pattern.h"

/// Which lines are wanted for what they say.
class Query {
 public:
  /// See Pattern::Set(). Once.
  bool SetPattern(const std::string& text, const Pattern::How& how, std::string* error);
  /// Lines of these kernel levels, none without a level.
  void SetLevels(const Levels::Range& wanted);

  /// True when every line is wanted, whatever it says.
  bool MatchesAll() const { return !pattern.IsSet() && !hasLevels; }
  bool Matches(const Line& line) const;

  /// A place in the first line of [`from`, `end`) that may match the pattern, nullptr when none does.
  const char* Find(const char* from, const char* end) const;

 private:
  Pattern pattern;
  bool hasLevels = false;
  Levels::Range levels;
};

#endif  // QUILCAT_TOOLS_QUILLOG_SELECT_QUERY_H_
