#ifndef QUILCAT_MMAPLOG_LOG_MMAP_H_
#define QUILCAT_MMAPLOG_LOG_MMAP_H_

#include <stddef.h>
#include <stdint.h>

#include "mmaplog/log_format.h"

/// Appends bytes to one file through a 64 KiB shared mapping that slides along it.
///
/// One object serves one file for its whole life. Not thread-safe: the caller holds the writer's lock.
/// While the object lives the file is whole segments long, zero behind what was written; a process that dies leaves it
/// so, the destructor cuts it to what was written. The blocks of a segment are put on disk before it is used, so a full
/// disk refuses a write and never ends the process. A file holds less than 2 GiB.
class LogMmap {
 public:
  /// Opens and empties `path`, made with mode 0700 when it is missing, and maps its first segment. A failure is
  /// reported on standard error and shows in isMmapOpenSucc(). A null path opens nothing.
  explicit LogMmap(const char* path);
  ~LogMmap();
  LogMmap(const LogMmap&) = delete;
  LogMmap& operator=(const LogMmap&) = delete;

  /// True when the file is open and a segment is mapped.
  bool isMmapOpenSucc() const;

  /// Appends `len` bytes, 1 to 65536. False: refused whole, the file holds what it held before; the next write starts
  /// at the same position.
  bool Write(const void* data, size_t len);

 private:
  void openMmapFile(const char* path);
  bool mmap_file();
  bool FillSegment(uint64_t offset);
  void UndoExtension();
  void Shorten(uint64_t size) const;
  void ReleaseSegment();
  void CloseFile();

  int fd = -1;
  uint64_t reservedSize = 0;  ///< length of the file: 65536 times the segments mapped so far
  uint64_t writtenSize = 0;   ///< the next byte goes to this offset
  uint8_t* segment = nullptr;
};

#endif  // QUILCAT_MMAPLOG_LOG_MMAP_H_
