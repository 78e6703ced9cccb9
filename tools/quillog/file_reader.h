#ifndef QUILCAT_TOOLS_QUILLOG_FILE_READER_H_
#define QUILCAT_TOOLS_QUILLOG_FILE_READER_H_

#include <stdint.h>

#include <memory>
#include <string>

#include "quillog/pile/log_file.h"
#include "quillog/text_sink.h"

/// How a file ends, so far as its bytes tell.
enum class FileState {
  kClosed,    ///< nothing after the text
  kZeroTail,  ///< sound, zeros after the text: the file is open, or its writer died
  kEmpty,     ///< no text
  kTorn,      ///< the last piece is not whole and nothing readable follows
  kDamaged,   ///< damaged in the middle
};

/// What was read of a file so far.
struct FileSummary {
  uint64_t bytes = 0;      ///< length of the file
  uint64_t textBytes = 0;  ///< bytes of text handed on
  uint64_t members = 0;    ///< sound gzip members; files in an archive; 0 for plain text
  FileState state = FileState::kClosed;
  uint64_t damagedAt = 0;  ///< first damaged byte
};

/// Reads one file of an output from its oldest to its newest text.
///
/// Constant memory. One thread. Shares its descriptor, so it can read a file that was renamed or deleted. Never writes.
class FileReader {
 public:
  virtual ~FileReader() = default;
  FileReader(const FileReader&) = delete;
  FileReader& operator=(const FileReader&) = delete;

  /// Opens `file`; text and damages go to `sink`, which outlives the reader. Null: it cannot be opened or is no regular
  /// file, and `error` says why.
  static std::unique_ptr<FileReader> Open(const LogFile& file, TextSink& sink, std::string* error);

  /// Hands on the text that follows what earlier calls handed on. `growing`: an incomplete end of the file is left for
  /// the next call; otherwise it is a damage, and its readable text is handed on unverified.
  virtual void Read(bool growing) = 0;

  /// After Read().
  virtual FileSummary Summary() const { return summary; }

  uint64_t device() const { return deviceNumber; }
  uint64_t inode() const { return inodeNumber; }

 protected:
  explicit FileReader(TextSink& textSink) : sink(textSink) {}

  /// The first damage names the place.
  void ReportDamage(uint64_t offset, FileState state, const std::string& what);

  TextSink& sink;
  FileSummary summary;

 private:
  uint64_t deviceNumber = 0;
  uint64_t inodeNumber = 0;
};

#endif  // QUILCAT_TOOLS_QUILLOG_FILE_READER_H_
