#ifndef QUILCAT_TOOLS_QUILLOG_CLOCK_LINE_HEAD_H_
#define QUILCAT_TOOLS_QUILLOG_CLOCK_LINE_HEAD_H_

#include <stddef.h>
#include <stdint.h>

#include "quillog/time/time_text.h"

constexpr int64_t kNoKernelClock = -1;

/// What a line says about time, and where its own text begins.
///
///     11-22 21:04:05.042 <6>[  123.456789] usb 1-1: new device    a streamed line of the kernel
///     11-22 21:04:05.042 some other text                          a streamed line of another node
///     2026-11-22 21:04:05 >   62   4000                           a polled row
///     current time: 2026-11-22 21:4:5                             a line that only tells the time
struct LineHead {
  int year = 0;                          ///< 0: not told
  int month = 0;                         ///< 0: the line has no stamp
  int day = 0;                           ///< one that the month may have
  Time timeOfDay = 0;                    ///< milliseconds since midnight
  int64_t kernelClock = kNoKernelClock;  ///< microseconds since the boot, without time in suspend on many phones
  int level = -1;                        ///< of the kernel: 0, emergency, to 7, debug; -1: not told
  size_t textAt = 0;                     ///< what follows stamp, level and kernel clock

  bool HasStamp() const { return month != 0; }
  /// A stamp that no clock shows (month 13, 99:99:99) is none.
  static LineHead Parse(const char* text, size_t size);
};

/// How a boot ended.
enum class BootEnd {
  kUnknown,   ///< the log ends with it
  kCut,       ///< another boot begins without more ado: battery out, reset, or a panic that was not logged
  kRestart,   ///< orderly
  kPowerOff,  ///< orderly
  kPanic
};
/// What the text of a kernel line (LineHead::textAt) says of the end of its boot, kUnknown for most.
BootEnd BootEndIn(const char* text, size_t size);

#endif  // QUILCAT_TOOLS_QUILLOG_CLOCK_LINE_HEAD_H_
