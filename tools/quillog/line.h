#ifndef QUILCAT_TOOLS_QUILLOG_LINE_H_
#define QUILCAT_TOOLS_QUILLOG_LINE_H_

#include <stddef.h>

#include <memory>
#include <string>

#include "quillog/time_text.h"

/// One line of a log. `text` is the caller's until the call that it is handed to returns.
struct Line {
  const char* text = nullptr;
  size_t size = 0;      ///< without the line feed
  bool ended = true;    ///< a line feed follows; missing after a line that was cut or is not finished
  bool follows = true;  ///< nothing was left out between it and the line handed on before
  bool verified = true;
  Time time = kNoTime;  ///< its own, or that of the line before
  bool hasOwnTime = false;
  const std::string* file = nullptr;
  std::shared_ptr<const std::string> title;  ///< the columns' names above a polled row; null: none
  bool isRow = true;                         ///< holds values: no title line, no line that only tells the time
  bool followsTimeLine = false;              ///< right after a line that only tells the time
};

/// Takes whole lines of one file after the other, in order.
class LineSink {
 public:
  virtual ~LineSink() = default;
  /// Consecutive lines, each but the last of a file ended by a line feed; the caller's until the call returns.
  virtual void OnLines(const char* text, size_t size, bool verified) = 0;
};

#endif  // QUILCAT_TOOLS_QUILLOG_LINE_H_
