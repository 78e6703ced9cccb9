#ifndef QUILCAT_TOOLS_QUILLOG_LINES_LEVELS_H_
#define QUILCAT_TOOLS_QUILLOG_LINES_LEVELS_H_

#include <string>

/// Levels of kernel messages, 0 (emerg) to 7 (debug).
namespace Levels {

constexpr int kNone = -1;
constexpr int kMost = 7;

/// The levels of -p, severest first, both included.
struct Range {
  int severest = 0;
  int mildest = kMost;

  /// A line without a level is in none.
  bool Holds(int level) const { return level >= severest && level <= mildest; }
};

/// "err", "warning", "3": a name as syslog has it.
const char* Name(int level);

/// "err": that level and all severer ones. "warning..err", "3..4", "err..": those between, both included, in either
/// order. False: no such level.
bool Parse(const std::string& text, Range* range);

}  // namespace Levels

#endif  // QUILCAT_TOOLS_QUILLOG_LINES_LEVELS_H_
