#ifndef QUILCAT_TOOLS_QUILLOG_BYTES_TEXT_CHECK_H_
#define QUILCAT_TOOLS_QUILLOG_BYTES_TEXT_CHECK_H_

#include <stddef.h>

/// What text that a daemon logged looks like.
namespace TextCheck {

constexpr size_t kStreamedTime = 19;  ///< "11-22 21:04:05.042 "
constexpr size_t kPolledTime = 22;    ///< "2026-11-22 21:04:05 > "

/// The length of the time that a line begins with, kStreamedTime or kPolledTime. 0: none that a clock shows.
size_t TimeLength(const char* text, size_t size);

/// How much of text without a checksum may be what was logged: the whole lines before the first that cannot be. No line
/// holds control characters but those of terminals and of the kernel, and after streamed lines each has a time of its
/// own, up to an empty line, after which comes a title.
size_t PossibleLength(const char* text, size_t size);

}  // namespace TextCheck

#endif  // QUILCAT_TOOLS_QUILLOG_BYTES_TEXT_CHECK_H_
