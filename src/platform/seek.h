#ifndef QUILCAT_PLATFORM_SEEK_H_
#define QUILCAT_PLATFORM_SEEK_H_

#include <unistd.h>

// Linux has had it since 3.1, the C library's headers of Android 8.1 have it not.
#ifndef SEEK_DATA
#define SEEK_DATA 3
#endif

#endif  // QUILCAT_PLATFORM_SEEK_H_
