#ifndef QUILCAT_TOOLS_QUILLOG_LINES_LINE_READER_H_
#define QUILCAT_TOOLS_QUILLOG_LINES_LINE_READER_H_

#include <memory>
#include <string>

#include "quillog/bytes/file_reader.h"
#include "quillog/lines/line.h"

/// Reads whole lines, with what each says of time, of one file after the other. Pieces of text need not end with a
/// line.
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

  /// Where in its file a line is, as a number that rises: `member` and `offset` as Piece has them. Of an archive's
  /// files only the first has its places so.
  static Place RankOf(FileKind kind, uint64_t member, uint64_t offset) {
    constexpr int kMostExpansion = 11;  // no byte of deflate makes more than 1032
    return kind == FileKind::kMapped ? (member << kMostExpansion) + offset : offset;
  }

  /// Goes on with another file, whose lines have ranks from `rank` on. `newest`: it may be written right now.
  void Open(FileKind kind, const ByteRange& bytes, const std::string& name, bool newest, Place rank);
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
  FileKind fileKind = FileKind::kPlain;
  std::string fileName;
  Place firstRank = 0;  ///< of the file, or of the text since it began anew
  Place endRank = 0;    ///< after all that was read
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

  std::string title;
  bool hasTitle = false;
  size_t lineNumber = 0;  ///< in the file
  bool rowsTellTime = false;
  bool afterEmptyLine = false;
  bool afterTimeLine = false;
};

#endif  // QUILCAT_TOOLS_QUILLOG_LINES_LINE_READER_H_
