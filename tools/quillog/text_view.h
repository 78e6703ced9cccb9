#ifndef QUILCAT_TOOLS_QUILLOG_TEXT_VIEW_H_
#define QUILCAT_TOOLS_QUILLOG_TEXT_VIEW_H_

#include "quillog/forms/printer.h"
#include "quillog/options.h"
#include "quillog/report.h"
#include "quillog/select/log_reader.h"
#include "quillog/select/query.h"

/// Shows the wanted lines of one output, and goes on with new ones.
class TextView {
 public:
  /// Borrows everything; `wanted` was set from the options.
  TextView(const Options& asked, Query& wanted, Output& shown, Printer& form, TextOutput& to, Report& reported);

  /// All lines, or the last ones, that are there now; with --follow new ones too, across rotations and deletions, until
  /// nobody reads them.
  void Show();

 private:
  size_t FindLast();
  size_t Count(size_t place);
  void ShowAll(LogReader& log);
  Item NextWanted(LogReader& log, Line* line);

  const Options& options;
  Query& query;
  Output& output;
  Printer& printer;
  TextOutput& text;
  Report& report;
  LogReader::Options how;
  const bool wholeRuns;  ///< nobody asks about single lines
  const bool searches;   ///< lines that are not wanted need not be looked at
  bool leftOut = false;  ///< the line before
  size_t toPass = 0;     ///< wanted lines before the last ones
  size_t toShow = SIZE_MAX;
};

#endif  // QUILCAT_TOOLS_QUILLOG_TEXT_VIEW_H_
