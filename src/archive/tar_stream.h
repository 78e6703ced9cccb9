#ifndef QUILCAT_ARCHIVE_TAR_STREAM_H_
#define QUILCAT_ARCHIVE_TAR_STREAM_H_

#include <stdint.h>
#include <zlib.h>

// The steps of tar_zip_files, for its own files and tests. The archive stays the caller's and open.

/// Fills `header`, 512 bytes, zero on entry. Of `size` the low 32 bits count.
void write_header(char* header, const char* name, int64_t size);

/// Appends `header`, 512 bytes, and ceil(size / 512) blocks that hold the first `size` bytes of the file, with zeros
/// where the file is shorter. Appends nothing when `path` cannot be opened or is no regular file, so that no header
/// stands without the data it announces.
void write_zip_content(gzFile archive, const char* path, int64_t size, const char* header);

/// Appends the regular files in `directory` and below it, in the order in which the directories yield them. `prefix`
/// stands for the directory in their names; null gives bare names. Appends nothing for a directory that cannot be
/// opened.
void tar_zip_dir_recursive(gzFile archive, const char* directory, const char* prefix);

#endif  // QUILCAT_ARCHIVE_TAR_STREAM_H_
