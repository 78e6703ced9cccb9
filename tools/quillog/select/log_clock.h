#ifndef QUILCAT_TOOLS_QUILLOG_SELECT_LOG_CLOCK_H_
#define QUILCAT_TOOLS_QUILLOG_SELECT_LOG_CLOCK_H_

#include <vector>

#include "quillog/lines/line_reader.h"
#include "quillog/pile/output_files.h"

/// A part of a file that can be read without what is before it.
struct FilePart {
  uint64_t from = 0;         ///< where to begin reading, see FileReader::Limit()
  uint64_t to = UINT64_MAX;  ///< and to end: one block later, as the last line may go on there
  Place first = 0;           ///< its lines are from here
  Place end = kNoPlace;
};

/// Tells the moments of an output's lines.
///
/// At the first question it surveys the log: it looks at the head of each block, and reads blocks only where something
/// happened to the clock, and the last of each file. Memory is the Timeline's.
class LogClock {
 public:
  /// A block of a file, by its first stamped line.
  struct Block {
    uint64_t at = 0;  ///< in the file, see FileReader::Head()
    Place first = 0;
    LineHead head;
    BootEnd end = BootEnd::kUnknown;
  };

  /// Borrows the output.
  explicit LogClock(const Output& of) : output(of) {}
  LogClock(const LogClock&) = delete;
  LogClock& operator=(const LogClock&) = delete;

  /// The rank of the first line of a file. Files are numbered as they are listed at the survey, and later ones go on.
  static constexpr Place FirstIn(size_t number) { return static_cast<Place>(number) << 44; }

  /// The first block at or after `from` that has a stamped line in its head. False: there is none.
  static bool FindBlock(FileReader& file, FileKind kind, size_t number, uint64_t from, Block* block);

  /// False where no writer can be at work any more.
  static bool MayBeWritten(const LogFile& file) {
    const bool isLate = file.modified != kNoTime && file.modified + TimeText::kDay > TimeText::Now();
    return file.newest && file.inode != 0 && isLate;
  }
  /// A file in parts of so many blocks each.
  static std::vector<FilePart> PartsOf(FileReader& file, FileKind kind, size_t number, size_t blocks);

  const Timeline& Times();
  /// A file that came since, or whose last lines came just now.
  void AddFile(size_t number, const LogFile& file);
  /// A line that was read: when it came after the survey it is told now.
  void Tell(const Line& line);

  /// The first and the newest time, in the order of the log; kNoTime: no line has any.
  Time Oldest();
  Time Newest();
  /// The moments of the first and the last stamped line of a file.
  Moment FirstOf(size_t number);
  Moment LastOf(size_t number);

 private:
  void Survey(size_t number);
  void TellLines(size_t number, const ByteRange& bytes, uint64_t from, uint64_t to);
  bool HasOwnChanges() const;

  const Output& output;
  Timeline timeline;
  bool isSurveyed = false;
  bool hasTold = false;
  Place told = 0;  ///< the last line that was
};

#endif  // QUILCAT_TOOLS_QUILLOG_SELECT_LOG_CLOCK_H_
