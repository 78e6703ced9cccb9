#ifndef QUILCAT_TOOLS_QUILLOG_MERGE_VIEW_H_
#define QUILCAT_TOOLS_QUILLOG_MERGE_VIEW_H_

#include <memory>
#include <vector>

#include "quillog/forms/printer.h"
#include "quillog/options.h"
#include "quillog/pile/output_files.h"
#include "quillog/report.h"
#include "quillog/select/log_reader.h"
#include "quillog/select/query.h"

/// Shows the wanted lines of several outputs as one log: by their time, those of one output in their own order, each
/// after the output's name and, where there are several, the device's.
///
/// A reader's memory and one descriptor for each output that has not ended, besides what is held.
class MergeView {
 public:
  /// Borrows everything; `wanted` was set from the options.
  MergeView(const Options& asked, const Query& wanted, std::vector<Output>& shown, Printer& form, TextOutput& to,
            Report& reported);

  /// All lines that are there now, or the last ones; with --count their number. False: wrong usage, which was named.
  bool Show();

 private:
  /// An output with its next line.
  struct Stream {
    Output* output = nullptr;
    Source source;
    std::unique_ptr<LogClock> clock;
    LogReader::Wanted wanted;
    std::unique_ptr<LogReader> log;  ///< null: there is no further line
    Line line;
    Time moment = kNoTime;  ///< of the line, or of one before
    bool hasMoment = false;
  };

  bool SetRanges();
  void HoldAll();
  void ShowAll(size_t toPass);
  void Open();
  static void SetMoment(Stream& stream);
  void Advance(Stream& stream, bool isQuiet);
  size_t Count();
  Stream* Earliest(Time* next);

  const Options& options;
  const Query& query;
  Printer& printer;
  TextOutput& text;
  Report& report;
  LogReader::Options how;
  std::vector<Stream> streams;
};

#endif  // QUILCAT_TOOLS_QUILLOG_MERGE_VIEW_H_
