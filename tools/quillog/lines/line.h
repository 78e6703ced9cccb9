#ifndef QUILCAT_TOOLS_QUILLOG_LINES_LINE_H_
#define QUILCAT_TOOLS_QUILLOG_LINES_LINE_H_

#include <stddef.h>
#include <stdint.h>

#include <string>

#include "quillog/clock/timeline.h"

/// One line of a log, valid until the next one is read.
struct Line {
  const char* text = nullptr;
  size_t size = 0;     ///< without the line feed
  bool ended = true;   ///< a line feed follows; missing after a line that was cut or is not finished
  bool joins = false;  ///< goes on the line before, which was too long for one
  bool verified = true;
  LineHead head;   ///< what it says itself
  Moment moment;   ///< its own, or that of a line before it; set by a LogReader that tells times
  Place rank = 0;  ///< where it is in the log
  const std::string* file = nullptr;
  const std::string* identity = nullptr;  ///< of the file, see FileReader::Identity()
  uint64_t member = 0;                    ///< where in the file the member begins that the line begins in, see Piece
  uint64_t offset = 0;                    ///< of the line in that member's text. Both stay while the file grows
  const std::string* title = nullptr;     ///< the columns' names above a polled row; null: none
  bool isRow = true;                      ///< holds values: no title line, no line that only tells the time
  bool followsTimeLine = false;           ///< right after a line that only tells the time
};

/// Consecutive lines in one piece, each but the last of a file ended by a line feed.
struct Run {
  const char* at = nullptr;
  const char* end = nullptr;
  bool joins = false;
  bool verified = true;
  uint64_t member = 0;
  uint64_t offset = 0;  ///< of `at`
  Place rank = 0;       ///< of the first line, and each byte counts one
};

/// What reading gives next.
enum class Item {
  kLine,
  kDamage,
  kRemark,  ///< what is no damage and yet to be said
  kEnd      ///< of what is there now
};

#endif  // QUILCAT_TOOLS_QUILLOG_LINES_LINE_H_
