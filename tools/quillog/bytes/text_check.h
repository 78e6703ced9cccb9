#ifndef QUILCAT_TOOLS_QUILLOG_BYTES_TEXT_CHECK_H_
#define QUILCAT_TOOLS_QUILLOG_BYTES_TEXT_CHECK_H_

#include <stddef.h>

/// What text that a daemon logged looks like. For text whose checksum is wrong or missing, one piece after the other.
///
/// No line holds control characters but those of terminals and of the kernel. After a streamed line each has a time of
/// its own, not an earlier one, and the kernel's marks if that had them, up to an empty line, after which comes a
/// title. (A clock that was set back makes that an error; then less is told, but nothing is made up.)
class TextCheck {
 public:
  static constexpr size_t kStreamedTime = 19;  ///< "11-22 21:04:05.042 "
  static constexpr size_t kPolledTime = 22;    ///< "2026-11-22 21:04:05 > "

  /// The length of the time that a line begins with, kStreamedTime or kPolledTime. 0: none that a clock shows.
  static size_t TimeLength(const char* text, size_t size);

  /// How much of the next text may be what was logged: its whole lines, or those before the first that cannot be but
  /// the last of them, in which the damage may begin.
  size_t PossibleLength(const char* text, size_t size);

 private:
  bool isStreamed = false;  ///< the line before
  char stamp[kStreamedTime] = {};
  bool isKernel = false;  ///< ... has a level and the kernel's clock
};

#endif  // QUILCAT_TOOLS_QUILLOG_BYTES_TEXT_CHECK_H_
