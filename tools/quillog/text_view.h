#ifndef QUILCAT_TOOLS_QUILLOG_TEXT_VIEW_H_
#define QUILCAT_TOOLS_QUILLOG_TEXT_VIEW_H_

#include <deque>
#include <set>
#include <string>

#include "quillog/forms/printer.h"
#include "quillog/options.h"
#include "quillog/report.h"
#include "quillog/select/log_reader.h"
#include "quillog/select/query.h"

/// A line that outlives the next one.
class KeptLine {
 public:
  KeptLine(const Line& of, bool wanted);

  /// Valid as long as this one is.
  Line Get() const;
  bool IsWanted() const { return isWanted; }
  size_t Memory() const { return sizeof *this + text.size() + file.size() + identity.size() + title.size(); }

 private:
  Line line;
  std::string text;
  std::string file;
  std::string identity;
  std::string title;
  bool isWanted;
};

/// Shows the wanted lines of one output, and goes on with new ones.
class TextView {
 public:
  /// What is borrowed.
  struct Parts {
    const Options& options;
    const Query& query;  ///< set from the options, as what is wanted of the output
    const LogReader::Wanted& wanted;
    Output& output;
    LogClock& clock;
    Printer& printer;
    TextOutput& text;
    Report& report;
  };
  explicit TextView(const Parts& parts);

  /// All lines, or the last ones, that are there now; with --follow new ones too, across rotations and deletions, until
  /// nobody reads them. With --count nothing is written.
  void Show();
  /// How many wanted lines there were.
  size_t found() const { return shown; }

 private:
  void ShowForward();
  void ShowReversed();
  void ShowReversed(size_t place, const FilePart& part);
  size_t FindLast();
  size_t Count(size_t place);
  void ShowAll(LogReader& log);
  Item NextLine(LogReader& log, Line* line, bool* isWanted);
  void Take(const Line& line, bool isWanted);
  void Leave(const Line& line);
  void Print(const Line& line);
  void ShowProgress(size_t place);

  const Options& options;
  const Query& query;
  Output& output;
  LogClock& clock;
  Printer& printer;
  TextOutput& text;
  Report& report;
  LogReader::Options how;
  const bool hasContext;
  const bool wholeRuns;  ///< nobody asks about single lines
  const bool searches;   ///< lines that are not wanted need not be looked at
  const size_t before;   ///< lines around a wanted one, in the order of showing
  const size_t after;

  bool leftOut = false;  ///< the line before
  size_t toPass = 0;     ///< wanted lines before the last ones
  size_t toShow = SIZE_MAX;
  size_t shown = 0;
  size_t afterLeft = 0;       ///< lines to show after a wanted one
  std::deque<KeptLine> kept;  ///< the lines before, which may be shown
  size_t memory = 0;          ///< theirs
  bool isGap = false;         ///< lines were left out since the last one that was shown
  bool hasPrinted = false;
  std::set<std::string> said;  ///< by --reverse, which comes to some places twice
};

#endif  // QUILCAT_TOOLS_QUILLOG_TEXT_VIEW_H_
