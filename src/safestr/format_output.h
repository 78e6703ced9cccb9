#ifndef QUILCAT_SAFESTR_FORMAT_OUTPUT_H_
#define QUILCAT_SAFESTR_FORMAT_OUTPUT_H_

#include <cstdarg>
#include <cstddef>
#include <cstdint>

/// What the files of safestr share; everybody else includes safestr.h.

/// Where the engine writes. One lives on the stack of each print call.
struct OutputCursor {
  std::int32_t remaining;  ///< Bytes still free; negative once output met the end of the room.
  char* cur;               ///< Next byte to write.
};

/// Writes what `format` and its arguments give, without a terminator. Returns the characters written or -1: with
/// `out->remaining` negative the room ended and is filled to its last byte, otherwise the format is wrong or a wide
/// string can not be converted.
int format_output_s(OutputCursor* out, const char* format, va_list ap);

/// The primitives add what they wrote to `*written`. The first byte without room sets `*written` to -1 instead, and
/// they stop there. A count below 1 does nothing.
void write_char_a(char ch, OutputCursor* out, int* written);
void write_multi_char_a(char ch, int times, OutputCursor* out, int* written);
void write_string_a(const char* text, int length, OutputCursor* out, int* written);

/// The platform's vsprintf, through its fortified entry with an unknown buffer size. Returns the platform's result.
int indirectSprintf(char* buffer, const char* format, ...);

inline constexpr int kFormatError = -1;
inline constexpr int kTruncated = -2;

/// Prints into `size` bytes, 1 to safestr::kMaxSize, and terminates. Returns the characters written, kTruncated or
/// kFormatError; after these two the last of the `size` bytes is 0 and those before hold what was written.
int vsnprintf_helper(char* dest, std::size_t size, const char* format, va_list ap);

/// The rest of strncpy_s, for arguments that fail its quick checks: returns its code, with the destination reset where
/// the code says so.
int strncpy_error(char* dest, std::size_t destMax, const char* src, std::size_t count);

#endif  // QUILCAT_SAFESTR_FORMAT_OUTPUT_H_
