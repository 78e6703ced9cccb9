#ifndef QUILCAT_TOOLS_QUILLOG_SELECT_LOG_READER_H_
#define QUILCAT_TOOLS_QUILLOG_SELECT_LOG_READER_H_

#include <deque>
#include <set>
#include <string>
#include <vector>

#include "quillog/select/log_clock.h"

/// Reads the lines of an output's files, the oldest first, and goes on with new ones.
///
/// Damages, and files that are missing between others, are items in the same sequence.
class LogReader {
 public:
  /// Which part of the log is wanted.
  struct Wanted {
    Place from = 0;
    Place end = kNoPlace;
    Timeline::Range range;

    bool HasRange() const {
      return range.since != kNoTime || range.until != kNoTime || range.from > 0 || range.partEnd > 0;
    }
    bool IsAll() const { return !HasRange() && from == 0 && end == kNoPlace; }
  };
  struct Options {
    LineReader::Options lines;
    bool timed = false;  ///< each line has its moment
    Wanted wanted;       ///< with a range: `timed`. Blocks that hold nothing of it are left out
    FilePart part;       ///< of one file
  };

  /// Borrows the output and its clock. All files are read, or those from `first` and before `last`.
  LogReader(Output& of, LogClock& times, const Options& how, size_t first = 0, size_t last = SIZE_MAX);

  /// The next line, damage or remark.
  Item Next(Line* line);
  /// True for a line of what is wanted, which Next() gives others besides.
  bool Wants(const Line& line);
  /// What comes next; a line is the first of run().
  Item Peek();
  const Run& run() const { return lines.run(); }
  /// See LineReader::SkipTo().
  void SkipTo(const char* place) { lines.SkipTo(place); }

  /// After a damage or remark: what it is about, and what it is.
  const std::string& subject() const { return noteFile; }
  const std::string& message() const { return note; }

  /// The file that is read, in the output's list.
  size_t place() const { return current; }
  /// What was read of it; null: it could not be opened.
  const FileReader* file() { return isOpen ? &lines.file() : nullptr; }

  /// Lists the output afresh: after kEnd, with LineReader::Options::growing. What was read last is read to its end, and
  /// new files after it.
  void Renew();
  /// kLine when no file is missing before that one; else it is to be said.
  Item FindGapBefore(size_t at);

 private:
  Item OpenNext();
  bool MayGrow() const;
  Item TellGap(size_t next);
  void LeaveOutBlocks();
  void Remember();
  std::vector<size_t> NewFiles();
  bool MayHold(Place begin, Place end);

  Output& output;
  LogClock& clock;
  Options options;
  LineReader lines;
  std::deque<size_t> places;  ///< of the files to read, after the one that is open
  size_t current = 0;
  size_t number = 0;  ///< of that file, as the clock has it
  size_t nextNumber;
  Moment moment;  ///< of the line before
  bool hasMoment = false;
  bool isOpen = false;
  LogFile before;  ///< the file that was read last
  bool hasBefore = false;
  bool gapTold = false;
  FileSummary packed;  ///< of the file before, if it was plain and is packed now perhaps
  bool mayBePacked = false;
  bool isMeasured = false;  ///< `packed` is that file's, read to its end
  bool renewed = false;
  std::set<std::string> listed;  ///< files listed so far and still there
  std::string noteFile;
  std::string note;
};

#endif  // QUILCAT_TOOLS_QUILLOG_SELECT_LOG_READER_H_
