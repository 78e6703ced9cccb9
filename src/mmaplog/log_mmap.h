#ifndef QUILCAT_MMAPLOG_LOG_MMAP_H_
#define QUILCAT_MMAPLOG_LOG_MMAP_H_

#include <stddef.h>
#include <stdint.h>

#include "mmaplog/log_format.h"

/// Appends bytes to one new file through a 64 KiB shared mapping that slides along it.
///
/// One object serves one file for its whole life. Not thread-safe: the caller holds the writer's lock.
/// While the object lives the file is whole segments long, zero after what was written; a process that dies leaves it
/// so, the end cuts it to what was written. The blocks of a segment are put on disk before it is used, so a full disk
/// refuses a write and never ends the process.
///
/// A file is lost when somebody else cuts, extends or deletes it, or when its disk fails under a page that is to be
/// written. Nothing more is written to it, and it keeps the length that it has then. Nor to one that is full, at 2 GiB.
class LogMmap {
 public:
  /// Makes the file at `path` with mode 0700 and maps its first segment. It never opens a file that exists, and follows
  /// no link: whoever may write in the directory must not have another file emptied or written. A failure is reported
  /// on standard error and shows in isMmapOpenSucc(). A null path opens nothing.
  explicit LogMmap(const char* path);
  /// As Finish(), and closes the file.
  ~LogMmap();
  LogMmap(const LogMmap&) = delete;
  LogMmap& operator=(const LogMmap&) = delete;

  /// True when the file is open and a segment is mapped.
  bool isMmapOpenSucc() const;

  /// True when the file is lost or full: all writes are refused from then on, and belong in another file.
  bool isOver() const { return lost || full; }

  /// True when nothing was written so far.
  bool isEmpty() const { return writtenSize == 0; }

  /// The open file, borrowed, or -1.
  int descriptor() const { return fd; }

  /// Appends `len` bytes, 1 to 65536. False: refused; the file holds what it held before and the next write starts at
  /// the same position, or the file is over.
  bool Write(const void* data, size_t len);

  /// Ends the mapping, cuts the file to what was written, and gives its descriptor to the caller; -1 when there is
  /// none.
  int Finish();

 private:
  void openMmapFile(const char* path);
  bool mmap_file();
  bool IsOwn() const;
  bool FillSegment(uint64_t offset);
  void UndoExtension();
  bool WriteAcrossSegments(const uint8_t* bytes, size_t len, size_t room);

  int fd = -1;
  uint64_t reservedSize = 0;  ///< length of the file: 65536 times the segments mapped so far
  uint64_t writtenSize = 0;   ///< the next byte goes to this offset
  uint8_t* segment = nullptr;
  bool lost = false;
  bool full = false;
  bool hadName = false;  ///< not so on a file system that counts no names
};

#endif  // QUILCAT_MMAPLOG_LOG_MMAP_H_
