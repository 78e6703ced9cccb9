#ifndef QUILCAT_TOOLS_COMMON_UTF8_H_
#define QUILCAT_TOOLS_COMMON_UTF8_H_

#include <stddef.h>

/// The length of the UTF-8 sequence (RFC 3629) that `text` begins with; 0 for bytes that are none. `size` is at
/// least 1.
size_t Utf8Length(const char* text, size_t size);

#endif  // QUILCAT_TOOLS_COMMON_UTF8_H_
