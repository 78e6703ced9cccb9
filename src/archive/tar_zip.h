#ifndef QUILCAT_ARCHIVE_TAR_ZIP_H_
#define QUILCAT_ARCHIVE_TAR_ZIP_H_

#include <stdint.h>

/// Packs files into a new gzip-compressed tar archive at `archivePath`; tar_format.h has its layout.
///
/// `paths` holds `count` paths, packed in that order. A regular file is named after the last part of its path. A
/// directory stands for the regular files in it at every depth: under their bare names, or with `keepDirectoryName` not
/// 0 under "directory/sub/file", cut to 99 bytes. Anything else is passed over in silence: null entries, what is
/// missing or cannot be opened, symbolic links and other file types, and files in a directory whose path exceeds 255
/// bytes. A `count` below 1 makes an archive without entries.
///
/// A file is packed with the size it has when it is examined: what is appended meanwhile is left out, what is cut off
/// meanwhile is replaced by zeros. Of a larger file the first 4 GiB less one byte are packed.
///
/// What stood at `archivePath` is overwritten. The archive belongs to the user and group of "system" where that user
/// exists. A null `archivePath`, or one that cannot be created, changes nothing. No failure is reported, a full disk
/// included, and the archive is not forced to disk: it is in the page cache when the call returns.
///
/// The strings stay the caller's. Buffers are on the stack, about 1.5 KiB and 0.5 KiB more for each level of
/// directories; zlib allocates its own. Any thread may call, for different archives at the same time too.
void tar_zip_files(int32_t count, const char* const* paths, const char* archivePath, int32_t keepDirectoryName);

#endif  // QUILCAT_ARCHIVE_TAR_ZIP_H_
