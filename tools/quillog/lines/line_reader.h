#ifndef QUILCAT_TOOLS_QUILLOG_LINES_LINE_READER_H_
#define QUILCAT_TOOLS_QUILLOG_LINES_LINE_READER_H_

#include <memory>
#include <string>

#include "quillog/bytes/file_reader.h"
#include "quillog/lines/line.h"
#include "quillog/lines/line_times.h"

/// Reads whole lines, with the time of each, of one file after the other. Pieces of text need not end with a line.
///
/// At a gap the fragments on both sides are dropped: the beginning of one line and the end of another are no line that
/// was ever logged. What follows a gap counts as the beginning of a line when it begins with a time in the form that
/// the daemon writes; otherwise it is dropped up to the first line feed.
class LineReader {
 public:
  struct Options {
    bool verifiedOnly = false;
    bool tellsTitles = false;  ///< finds the title above polled rows
    bool apart = false;        ///< each file is read as if it were the first
    bool growing = false;      ///< the newest file's unfinished end is left for later
  };

  explicit LineReader(const Options& how) : options(how) {}
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  /// Goes on with another file. `newest`: it may be written right now.
  void Open(FileKind kind, const ByteRange& bytes, const std::string& name, bool newest,
            const LineTimes::FileTimes& around);
  /// Reads only from one block to before another, see FileReader::Limit(). Before the first line.
  void Limit(uint64_t from, uint64_t to);
  /// The file is not the newest any more: its end is read as it is.
  void NoteSuccessor() { isNewest = false; }

  /// The next line of the file.
  Item Next(Line* line);
  /// What comes next; a line is the first of run().
  Item Peek();
  const Run& run() const { return lines; }
  /// Leaves out lines of the run: those before the one that holds `place`; all of it for its end.
  void SkipTo(const char* place);

  /// After a damage or remark.
  const std::string& message() const { return note; }
  /// The file, once Open() was called.
  FileReader& file() { return *reader; }

 private:
  bool NextPiece();
  void CutRun();
  void GiveUnfinished(bool verified);
  void Consume(size_t size);
  void NoteTitle(Line* line);
  Item Finish();

  const Options options;
  std::unique_ptr<FileReader> reader;
  std::string fileName;
  bool isNewest = false;
  bool finished = true;
  std::string note;
  Piece piece;             ///< its text is what was not taken yet
  std::string unfinished;  ///< the beginning of a line
  Run unfinishedRun;       ///< where it is from
  std::string whole;       ///< what `unfinished` has become, as a run
  bool joins = false;      ///< what is unfinished goes on the run before
  bool afterGap = false;
  Run lines;

  LineTimes times;
  std::string title;
  bool hasTitle = false;
  size_t lineNumber = 0;  ///< in the file
  bool rowsTellTime = false;
  bool afterEmptyLine = false;
  bool afterTimeLine = false;
};

#endif  // QUILCAT_TOOLS_QUILLOG_LINES_LINE_READER_H_
