#ifndef QUILCAT_PLATFORM_STRING_H_
#define QUILCAT_PLATFORM_STRING_H_

#include <string.h>

// glibc has strlcpy since 2.38, Android's C library always had it.
#if defined(__GLIBC__) && !__GLIBC_PREREQ(2, 38)

/// Copies `source` into `destination` of `size` bytes, cut to fit and terminated when `size` is not 0. Returns the
/// length of `source`: a result of `size` or more says that it was cut.
size_t strlcpy(char* destination, const char* source, size_t size);

#endif
#endif  // QUILCAT_PLATFORM_STRING_H_
