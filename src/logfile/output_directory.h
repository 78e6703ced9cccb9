#ifndef QUILCAT_LOGFILE_OUTPUT_DIRECTORY_H_
#define QUILCAT_LOGFILE_OUTPUT_DIRECTORY_H_

#include <stdint.h>

#include <string>

// The directory of an output. Results are 0 on success and 1 on failure unless told otherwise. Any thread may call.

// A path is gone down level by level. A symbolic link on the way is followed when root made it and nobody else may
// write to the directory that it is in; where it leads, and what is linked there, is root's affair. Any other link
// is removed and named on standard error: it could have root make directories, or give one away, anywhere.

/// Makes the directory part of `path` and what is missing above it, with mode 0775, and gives it to root:system. 1,
/// with a message on standard error, when `path` is null or empty or has no directory part, or when there is no memory.
/// What the file system refuses is reported and does not make the call fail. `made`, unless null, is raised to the
/// number of directories that were made.
int create_bugreports_dir(const char* path, unsigned* made = nullptr);

/// Opens the directory at `path` as a path only, so that whoever watches it for openings is not woken. A descriptor,
/// the caller's, or -1: there is none.
int openDirectory(const std::string& path);

/// Makes every missing directory of `path`, each with `mode`. 1 when `path` is longer than 254 bytes, without a
/// message, or when a level cannot be made or given its mode, with one on standard error; the levels above it stay.
/// `made` as above.
int mkdir_p(const char* path, uint32_t mode, unsigned* made = nullptr);

#endif  // QUILCAT_LOGFILE_OUTPUT_DIRECTORY_H_
