#ifndef QUILCAT_TOOLS_QUILLOG_LINES_LEVELS_H_
#define QUILCAT_TOOLS_QUILLOG_LINES_LEVELS_H_

#include <stddef.h>

#include <string>

#include "quillog/lines/line.h"

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

/// The level in the "<4>" that `text` begins with: the number's last three bits, the others are the facility. kNone:
/// there is none.
int At(const char* text, size_t size);
/// The level of a streamed line, kNone for any other.
int Of(const Line& line);

/// "err", "warning", "3": a name as syslog has it.
const char* Name(int level);

/// "err": that level and all severer ones. "warning..err", "3..4", "err..": those between, both included, in either
/// order. False: no such level.
bool Parse(const std::string& text, Range* range);

}  // namespace Levels

#endif  // QUILCAT_TOOLS_QUILLOG_LINES_LEVELS_H_
