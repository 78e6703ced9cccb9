#ifndef QUILCAT_SAFESTR_SAFESTR_H_
#define QUILCAT_SAFESTR_SAFESTR_H_

#include <cstdarg>
#include <cstddef>

/// Copy, concatenate, fill and print into a destination of known size.
///
/// `destMax` is the size of the destination in bytes, the terminator included; not a byte past it is written.
/// Nothing here locks, keeps state or prints a message. Any thread may call; the result alone says what happened.
/// Only floating-point conversions may allocate, and they free before the call returns.

namespace safestr {

/// Largest size and count accepted.
inline constexpr std::size_t kMaxSize = 0x7FFFFFFF;

/// Results of the copy, concatenate and fill functions. A code above 128 is a base code plus 128 and says that the
/// destination was reset: its first byte is 0 or, after memset_s, all of it is filled.
inline constexpr int kOk = 0;
inline constexpr int kNullDestination = 22;     ///< Nothing was written.
inline constexpr int kBadDestinationSize = 34;  ///< `destMax` is 0 or above kMaxSize; nothing was written.
inline constexpr int kResetNoString = 150;      ///< Null source, or strcat_s found no terminator in the destination.
inline constexpr int kResetDoesNotFit = 162;    ///< The result does not fit, or a count is above kMaxSize.
inline constexpr int kResetOverlap = 182;       ///< Source and destination overlap.

}  // namespace safestr

/// Copies the string `src`, at most `count` bytes of it, and terminates the copy.
///
/// What is copied has to fit with its terminator: a `count` below `destMax` cuts a longer source and succeeds, a larger
/// one gives kResetDoesNotFit for it. A `count` of 0 gives an empty string and success. `dest == src` is accepted, any
/// other overlap is kResetOverlap. Returns one of the codes above.
int strncpy_s(char* dest, std::size_t destMax, const char* src, std::size_t count);

/// Appends the string `src` to the string in `dest`. Both with their terminator have to fit in `destMax` bytes. Returns
/// one of the codes above; after those above 128 `dest` is an empty string, what it held is lost.
int strcat_s(char* dest, std::size_t destMax, const char* src);

/// Sets the first `count` bytes to the low byte of `c`. A `count` above `destMax` sets all `destMax` bytes and gives
/// kResetDoesNotFit. With `destMax` and `count` both 0 nothing is written and the call succeeds.
int memset_s(void* dest, std::size_t destMax, int c, std::size_t count);

/// Prints into `dest`, all of it or nothing.
///
/// Returns the characters written, terminator excluded. Returns -1 and leaves an empty string (where `dest` is not null
/// and `destMax` not 0) for output that does not fit with its terminator, a null `format`, a `destMax` of 0 or above
/// safestr::kMaxSize, and a format error.
///
/// Formats follow C, with these differences:
/// - Format errors are `n`, `a`, `A`, whatever is no conversion, a format that ends inside a conversion, and a width or
///   precision written with more than 9 digits or above 214748369. Positional arguments are not known.
/// - `I64`, `I32`, `q`, `L` (64-bit integers too) and `w` (wide text) are sizes as well; `C` and `S` are `lc` and `ls`.
/// - An integer has at most 512 digits, however large the precision. `%p` takes no precision; null prints "(nil)".
/// - A null string prints "(null)". Width and precision of wide strings count wide characters. One that the locale can
///   not represent is a format error in a string; a single one (`%lc`) prints nothing.
/// - A floating-point conversion is the platform's. It prints nothing when the platform refuses it or memory is short.
///   It takes a negative `*` width for its magnitude; only a `-` flag aligns to the left.
int sprintf_s(char* dest, std::size_t destMax, const char* format, ...) __attribute__((format(printf, 3, 4)));
int vsprintf_s(char* dest, std::size_t destMax, const char* format, va_list ap) __attribute__((format(printf, 3, 0)));

/// Prints at most `count` characters and a terminator into `dest`.
///
/// With `count < destMax` output that is too long is cut: `dest` keeps its first `count` characters and the result is
/// -1. With a larger `count`, below safestr::kMaxSize or SIZE_MAX, output has to fit in `destMax` as with sprintf_s,
/// and the last byte of `dest` is set to 0 whatever the output. All other errors, a `count` in between among them, and
/// the formats are those of sprintf_s.
int snprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
int vsnprintf_s(char* dest, std::size_t destMax, std::size_t count, const char* format, va_list ap)
    __attribute__((format(printf, 4, 0)));

#endif  // QUILCAT_SAFESTR_SAFESTR_H_
