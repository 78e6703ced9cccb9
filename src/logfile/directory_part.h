#ifndef QUILCAT_LOGFILE_DIRECTORY_PART_H_
#define QUILCAT_LOGFILE_DIRECTORY_PART_H_

#include <stddef.h>

/// Copies the part of `path` before its last "/", which it must hold, into a heap block that the caller frees. Null
/// when there is no memory.
char* copyDirectoryPart(const char* path);

#endif  // QUILCAT_LOGFILE_DIRECTORY_PART_H_
