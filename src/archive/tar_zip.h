#ifndef QUILCAT_ARCHIVE_TAR_ZIP_H_
#define QUILCAT_ARCHIVE_TAR_ZIP_H_

#include <stdint.h>

/// Packs files into a new gzip-compressed tar archive at `archivePath`; tar_format.h has its layout.
///
/// `paths` holds `count` paths, packed in that order. A regular file is named after the last part of its path. A
/// directory stands for the regular files in it at every depth: under their bare names, or with `keepDirectoryName` not
/// 0 under "directory/sub/file", cut to 99 bytes. Passed over are null entries, paths where nothing stands, symbolic
/// links and other file types. A `count` below 1 makes an archive without entries.
///
/// A file is packed with the size it has when it is examined: what is appended meanwhile is left out, what is cut off
/// meanwhile is replaced by zeros.
///
/// True: the archive is complete, with every regular file that the paths led to, and its bytes are on disk (fsync);
/// what was packed may be deleted. The directory entry is as durable as any other that was made just now.
/// False: there is no archive. Either it could not be created, or writing or syncing it failed (a full disk), and what
/// there was of it was removed; or one of the files could not be packed: it could not be examined, opened or read, was
/// replaced or deleted after it was examined, has 4 GiB or more, or lies in a directory and has a path of more than 255
/// bytes; or the calling thread was asked to stop (ThreadBase). Nothing is reported; the packed files are as they were
/// in either case.
///
/// What stood at `archivePath`, a link too, is deleted first, never written to; a directory there is left and gives
/// false. The archive belongs to the user and group of "system" where that user exists. A null `archivePath` gives
/// false.
///
/// The strings stay the caller's. Buffers are on the stack, about 1.5 KiB and 0.5 KiB more for each level of
/// directories; zlib allocates its own. Any thread may call, for different archives at the same time too.
bool tar_zip_files(int32_t count, const char* const* paths, const char* archivePath, int32_t keepDirectoryName);

#endif  // QUILCAT_ARCHIVE_TAR_ZIP_H_
