#ifndef QUILCAT_TOOLS_QUILLOG_SELECT_LOG_READER_H_
#define QUILCAT_TOOLS_QUILLOG_SELECT_LOG_READER_H_

#include <deque>
#include <set>
#include <string>
#include <vector>

#include "quillog/lines/line_reader.h"
#include "quillog/pile/output_files.h"

/// Reads the lines of an output's files, the oldest first, and goes on with new ones.
///
/// Damages, and files that are missing between others, are items in the same sequence.
class LogReader {
 public:
  struct Options {
    LineReader::Options lines;
    Time since = kNoTime;     ///< blocks that hold nothing from then on may be left out
    Time until = kNoTime;     ///< ... up to then
    bool lastBlocks = false;  ///< only the last block of each file
  };

  /// Borrows the output, whose files are all read, or those from `first` and before `last`.
  LogReader(Output& of, const Options& how, size_t first = 0, size_t last = SIZE_MAX);

  /// The next line, damage or remark.
  Item Next(Line* line);
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

 private:
  Item OpenNext();
  bool MayGrow() const;
  Item TellGap(size_t next);
  void LeaveOutBlocks();
  void Remember();
  std::vector<size_t> NewFiles();
  LineTimes::FileTimes TimesAround(size_t at) const;

  Output& output;
  Options options;
  LineReader lines;
  std::deque<size_t> places;  ///< of the files to read, after the one that is open
  size_t current = 0;
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

/// The times of the first and the last line that tell it, of the files from `first` to before `last`; kNoTime when none
/// does.
Time OldestTime(Output& output, size_t first, size_t last);
Time NewestTime(Output& output, size_t first, size_t last);

#endif  // QUILCAT_TOOLS_QUILLOG_SELECT_LOG_READER_H_
