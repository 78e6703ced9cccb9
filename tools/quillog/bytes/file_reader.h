#ifndef QUILCAT_TOOLS_QUILLOG_BYTES_FILE_READER_H_
#define QUILCAT_TOOLS_QUILLOG_BYTES_FILE_READER_H_

#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <string>

#include "quillog/bytes/byte_window.h"

enum class FileKind {
  kMapped,   ///< gzip members, "O.I007.20240131-235959.gz", or any gzip file that is no archive
  kPlain,    ///< text: factory mode's live and rotated files
  kArchive,  ///< five rotated files, "O-0.tar.gz"
};

/// How a file ends, so far as its bytes tell.
enum class FileState {
  kClosed,    ///< nothing after the text
  kZeroTail,  ///< sound, zeros after the text: the file is open, or its writer died
  kEmpty,     ///< no text
  kTorn,      ///< the last piece is not whole and nothing readable follows
  kDamaged,   ///< damaged in the middle
};

/// What becomes of an incomplete end of a file.
enum class Tail {
  kGrows,    ///< it is left for a later look
  kSettles,  ///< the writer may be copying it at this moment: it is looked at again for a while
  kIsFinal   ///< it is a damage, and its readable text is given unverified
};

/// What was read of a file so far.
struct FileSummary {
  uint64_t bytes = 0;      ///< length of the file
  uint64_t textBytes = 0;  ///< bytes of text handed on
  uint64_t members = 0;    ///< sound gzip members; files in an archive; 0 for plain text
  FileState state = FileState::kClosed;
  uint64_t damagedAt = 0;      ///< first damaged byte
  unsigned long checksum = 0;  ///< CRC-32 of the text of a plain file: tells whether a file in an archive is this one
};

/// What a file holds next: a damage, text, or both, and then perhaps a gap.
struct Piece {
  std::string damage;  ///< what is lost, for a person; empty: nothing
  uint64_t damagedAt = 0;
  bool starts = false;         ///< the text begins another file, and so a line
  const char* text = nullptr;  ///< right after the text before, unless there is a gap; valid until the next call
  size_t size = 0;
  bool verified = true;   ///< its checksum was right, or the format has none
  bool gapAfter = false;  ///< text is missing: what comes next need not begin a line, and what came before not end one
  uint64_t member = 0;    ///< offset in the file of the member that the text is of; in an archive the place of its file
  uint64_t offset = 0;    ///< of the text in that of its member; in a plain file, in the file
};

/// Reads one file of an output from its oldest to its newest text.
///
/// Constant memory. One thread. Shares the descriptor, so it can read a file that was renamed or deleted. Never writes.
class FileReader {
 public:
  virtual ~FileReader() = default;
  FileReader(const FileReader&) = delete;
  FileReader& operator=(const FileReader&) = delete;

  static std::unique_ptr<FileReader> Make(FileKind kind, const ByteRange& bytes);

  /// What follows what earlier calls gave. False: nothing more, for now.
  virtual bool Next(Tail tail, Piece* piece) = 0;

  /// The beginning of the text, at most kHead bytes, of the first block at or after `*at` that can be read without what
  /// is before it; `*at` is set to its place. False: there is none. Does not change what Next() gives.
  static constexpr size_t kHead = 1024;
  virtual bool Head(uint64_t* at, std::string* text) { return static_cast<void>(at), static_cast<void>(text), false; }
  /// Goes on at a place that Head() gave, and ends before another, UINT64_MAX: none. Before the first Next().
  virtual void Limit(uint64_t from, uint64_t to) { static_cast<void>(from), static_cast<void>(to); }

  /// Leaves out the oldest files of an archive, up to and including the last with that size and checksum: they were
  /// read as plain files before they were packed. True: there is one.
  virtual bool PassOver(const FileSummary& known) { return static_cast<void>(known), false; }

  /// A name that stays when the file is rotated or packed, of the file that text of that member is of, see
  /// FileIdentity(); empty while there is none. Null: the file's own name stays. Valid as long as the reader.
  virtual const std::string* Identity(uint64_t member) const { return static_cast<void>(member), nullptr; }

  const FileSummary& Summary() const { return summary; }

  /// True when a writer holds its lock on the file, which ends with its process. In a copy there is none.
  bool HasWriter() const;

 protected:
  explicit FileReader(const ByteRange& bytes) : window(bytes), range(bytes) {}

  /// Notes a damage in the summary, whose first one names the place, and in the piece.
  void SetDamage(Piece* piece, uint64_t offset, FileState state, const std::string& what);
  /// At the end of what is there: false, or a damage once when it cannot be read.
  bool End(uint64_t position, Piece* piece);

  ByteWindow window;
  const ByteRange range;
  FileSummary summary;

 private:
  bool failureTold = false;
};

#endif  // QUILCAT_TOOLS_QUILLOG_BYTES_FILE_READER_H_
