#ifndef QUILCAT_ARCHIVE_TAR_STREAM_H_
#define QUILCAT_ARCHIVE_TAR_STREAM_H_

#include <stdint.h>
#include <zlib.h>

// The steps of tar_zip_files, for its own files and tests. The archive stays the caller's and open.

/// Fills `header`, 512 bytes, zero on entry. Of `size` the low 32 bits count.
void write_header(char* header, const char* name, int64_t size);

/// Appends ceil(size / 512) blocks that hold the first `size` bytes of the file behind the header that announces them;
/// zeros where the file is shorter. False: it is no regular file any more, or reading or writing failed. The archive
/// then lacks what its header announces, and is to be thrown away.
bool write_zip_content(gzFile archive, const char* path, int64_t size);

/// Appends the regular files in `directory` and below it, in the order in which the directories yield them. `prefix`
/// stands for the directory in their names; null gives bare names. Appends nothing for a directory that is gone. False:
/// a file or directory is there and was not packed in full; the archive is to be thrown away.
bool tar_zip_dir_recursive(gzFile archive, const char* directory, const char* prefix);

#endif  // QUILCAT_ARCHIVE_TAR_STREAM_H_
