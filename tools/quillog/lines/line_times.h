#ifndef QUILCAT_TOOLS_QUILLOG_LINES_LINE_TIMES_H_
#define QUILCAT_TOOLS_QUILLOG_LINES_LINE_TIMES_H_

#include <stddef.h>

#include "quillog/time/time_text.h"

/// Tells the time of lines, in the order of the log.
///
/// A polled row has all of it, "2026-11-22 21:04:05 > "; so does a line "current time: 2026-11-22 21:4:5". A streamed
/// line, "11-22 21:04:05.042 ", has no year: it gets the one that puts it nearest to the line before, or to the time in
/// the name of the file. A phone that lost its clock begins in 1970 until it is set: then the files before and after
/// tell the year. Any other line has the time of the line before it.
class LineTimes {
 public:
  /// Times around a file. Each may be kNoTime.
  struct FileTimes {
    Time started = kNoTime;  ///< in its name
    Time before = kNoTime;   ///< when the nearest file before it with a set clock was begun or last changed
    Time after = kNoTime;    ///< the same of the nearest file after it, or the last change of the file itself
  };

  void StartFile(const FileTimes& times);

  /// The time of the next line, kNoTime when no line has had one; `own`: it is the line's own.
  Time Next(const char* text, size_t size, bool* own);

 private:
  Time OfStreamed(int month, int day);

  FileTimes file;
  Time reference = kNoTime;  ///< what streamed lines are near to
  Time latest = kNoTime;     ///< of the line before
  int monthAndDay = 0;       ///< of the streamed line before; 0: none in this file
  Time dayStart = kNoTime;   ///< of that day
};

#endif  // QUILCAT_TOOLS_QUILLOG_LINES_LINE_TIMES_H_
