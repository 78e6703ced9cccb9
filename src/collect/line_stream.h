#ifndef QUILCAT_COLLECT_LINE_STREAM_H_
#define QUILCAT_COLLECT_LINE_STREAM_H_

#include <stddef.h>
#include <time.h>

#include "collect/column_format.h"
#include "logfile/log_output.h"

/// The time of a line's arrival, "11-22 20:17:29.042 ". All but the milliseconds is made once a second and kept.
class LineClock {
 public:
  static constexpr size_t kSize = 19;  ///< of the text

  /// Takes the time. False: the local time is not to be had, and stamp() is of no use.
  bool Update();
  /// kSize characters, until the next Update().
  const char* stamp() const { return text; }

 private:
  time_t second = -1;
  bool usable = false;
  char text[kSize + 1] = {};
};

/// Splits the bytes of a node into lines and writes each after the time of its arrival.
///
/// Holds one buffer of at most 8191 bytes; what follows the last line feed is kept at its start until the rest of
/// the line arrives. For one thread, a collector's worker, which may be asked to stop. Allocates nothing.
class LineStream {
 public:
  static constexpr size_t kTextSize = ColumnFormat::kWidest + 1;

  /// Borrows `output`. With `retries`, text that the output does not take is offered again once a second until it is
  /// taken; a line of the log then tells how long that took. A request to stop the thread leaves it one more try, at
  /// once.
  LineStream(LogOutput& output, bool retries);

  /// Length of what snprintf_s left in `text` of kTextSize bytes, given its result: the count, or -1 when it cut the
  /// text.
  static size_t FormattedLength(const char* text, int result);

  /// Where the next bytes of the node belong, and how many have room.
  char* freeSpace() { return buffer + kept; }
  size_t freeSize() const { return kTextSize - 1 - kept; }

  /// Writes the lines that the `size` bytes read into freeSpace() complete. A zero byte ends the data; what follows it
  /// is lost. A full buffer without a line feed is a line. False: a write failed, or the thread is to stop.
  bool WriteCompleted(size_t size);

  /// Has a line before the next one tell that reads failed with `error`, an errno, and text may be missing.
  void NoteFailedRead(int error);

 private:
  bool EmitLines(size_t size);
  bool Emit(const char* line, size_t length);
  bool EmitNotes();
  bool AddLine(const char* line, size_t length);
  bool WriteRun();
  bool Pause();

  LogOutput& output;
  const bool retries;
  LineClock clock;
  size_t kept = 0;
  unsigned failedReads = 0;  ///< not told yet
  int readError = 0;
  unsigned pauses = 0;  ///< seconds without a write, not told yet
  char buffer[kTextSize] = {};
  char run[LogOutput::kMostText];  ///< lines to be written, each with its time
  size_t runSize = 0;
};

#endif  // QUILCAT_COLLECT_LINE_STREAM_H_
