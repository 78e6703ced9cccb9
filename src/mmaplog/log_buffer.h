#ifndef QUILCAT_MMAPLOG_LOG_BUFFER_H_
#define QUILCAT_MMAPLOG_LOG_BUFFER_H_

#include <stddef.h>
#include <stdint.h>

#include "mmaplog/compressor.h"
#include "mmaplog/log_format.h"
#include "thread/mutex.h"

class LogMmap;

/// Collects text and hands it to a mapped log file in blocks, each compressed to one complete gzip member (RFC 1952).
///
/// A block is cut when 52429 bytes are pending and by Flush(). Allocates nothing after construction. Any thread may
/// call Write() and Flush(); whoever replaces or destroys the target must keep them out meanwhile (the writer's lock
/// does).
class LogBuffer {
 public:
  /// Reports a compressor that cannot be set up on standard error; the next Write() tries again.
  ///
  /// With `keepRefused` nothing that was taken is dropped: a block that the file refuses stays, and text that has no
  /// room after it is not taken. Every Write() and Flush() offers the block to the file again.
  explicit LogBuffer(bool keepRefused = false);
  /// Flushes into the target, which must still exist. What a file that is over did not take is lost with the buffer.
  ~LogBuffer();
  LogBuffer(const LogBuffer&) = delete;
  LogBuffer& operator=(const LogBuffer&) = delete;

  /// Sets the file that takes the blocks; not owned. Blocks cut before there is one, or after it was over, are kept
  /// while they fit, and go to the next one at the next hand-over.
  void SetupMap(LogMmap* file);

  /// Appends `len` bytes of text. False: the text was dropped for lack of room (more than the 13108 bytes that are
  /// always free) or of a compressor, or the block that it completed had no file to go to, or was refused and
  /// dropped. A block that waits for another file than one that is over is none of these, as long as it fits. With
  /// `keepRefused`, false says that the text was not taken, whatever the reason; it may be offered again.
  bool Write(const void* data, size_t len) EXCLUDES(lock);

  /// Compresses what is pending and hands all compressed bytes to the file. Nothing pending writes nothing. False: text
  /// is still pending, since there is no file, it is over, or, with `keepRefused`, it refused the text.
  bool Flush() EXCLUDES(lock);

 private:
  bool SetUpCompressor() REQUIRES(lock);
  bool Drain() REQUIRES(lock);
  bool AppendMember(uint32_t size) REQUIRES(lock);
  bool HandOver() REQUIRES(lock);
  void DropInput(uint32_t size) REQUIRES(lock);
  void ClearOutput() REQUIRES(lock);

  // Not cleared at first: what no block reaches never becomes memory, and is never read.
  uint8_t inBuffer[LogFormat::kBlockArea] GUARDED_BY(lock);
  uint32_t inFree GUARDED_BY(lock) = LogFormat::kBlockArea;
  uint32_t inUsed GUARDED_BY(lock) = 0;
  uint8_t outBuffer[LogFormat::kBlockArea] GUARDED_BY(lock);
  uint32_t outFree GUARDED_BY(lock) = LogFormat::kBlockArea;
  uint32_t outUsed GUARDED_BY(lock) = 0;
  Compressor compressor GUARDED_BY(lock);
  const bool keepsRefused;
  LogMmap* target = nullptr;
  Mutex lock;
};

#endif  // QUILCAT_MMAPLOG_LOG_BUFFER_H_
