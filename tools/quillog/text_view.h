#ifndef QUILCAT_TOOLS_QUILLOG_TEXT_VIEW_H_
#define QUILCAT_TOOLS_QUILLOG_TEXT_VIEW_H_

#include <deque>
#include <memory>
#include <set>
#include <string>

#include "quillog/line_reader.h"
#include "quillog/options.h"
#include "quillog/printer.h"
#include "quillog/query.h"

/// Shows the wanted lines of one output, and goes on with new ones.
class TextView {
 public:
  /// Borrows everything; `wanted` was set from the options.
  TextView(const Options& asked, const Query& wanted, Output& shown, Printer& form, TextOutput& to, Report& reported);

  /// All lines, or the last ones, that are there now.
  void Show();
  /// Never returns: new lines, across rotations and deletions. After Show().
  [[noreturn]] void Follow();

 private:
  struct KeptLine {
    Line line;
    std::string text;
    std::string file;
  };
  using KeptLines = std::deque<KeptLine>;

  void ShowOrKeep(const Line& taken);
  void ShowAll();
  void ShowLast();
  void ReadNewest();
  void ReadOn();
  std::vector<size_t> NewFiles();
  void Remember();
  void SwitchTo(const std::vector<size_t>& places);
  LineReader MakeReader();

  const Options& options;
  const Query& query;
  Output& output;
  Printer& printer;
  TextOutput& text;
  Report& report;
  LineReader lineReader;
  bool leftOut;                        ///< the line before, or it may have been
  std::unique_ptr<FileReader> newest;  ///< while following
  LogFile newestFile;
  std::set<std::string> listed;  ///< files listed so far and still there
  KeptLines* kept = nullptr;     ///< takes the lines instead of the printer
  size_t keepAtMost = 0;
};

/// The time of the last line that tells it, kNoTime when none does.
Time NewestTime(const std::vector<LogFile>& files, Report& report);

#endif  // QUILCAT_TOOLS_QUILLOG_TEXT_VIEW_H_
