#ifndef QUILCAT_PLATFORM_STRING_H_
#define QUILCAT_PLATFORM_STRING_H_

#include <string.h>

// glibc has strlcpy since 2.38, Android's C library always had it. Two steps: where there is no glibc there is no such
// macro, and the preprocessor reads an expression to its end before it knows what counts.
#ifdef __GLIBC__
#if !__GLIBC_PREREQ(2, 38)
#define QUILCAT_BRINGS_STRLCPY
#endif
#endif

#ifdef QUILCAT_BRINGS_STRLCPY

/// Copies `source` into `destination` of `size` bytes, cut to fit and terminated when `size` is not 0. Returns the
/// length of `source`: a result of `size` or more means that it was cut.
size_t strlcpy(char* destination, const char* source, size_t size);

#endif
#endif  // QUILCAT_PLATFORM_STRING_H_
