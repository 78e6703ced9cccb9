#ifndef QUILCAT_TOOLS_QUILLOG_LINE_READER_H_
#define QUILCAT_TOOLS_QUILLOG_LINE_READER_H_

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "quillog/file_reader.h"
#include "quillog/line_assembler.h"
#include "quillog/line_times.h"
#include "quillog/pile/output_files.h"
#include "quillog/printer.h"
#include "quillog/query.h"

/// Names damages and failures on standard error, and remembers that there were any.
class Report {
 public:
  explicit Report(TextOutput& to) : output(to) {}
  /// "quillog: FILE: TEXT". With `isDamage` it counts as a damage, without it is only a remark.
  void Say(const std::string& file, const std::string& text, bool isDamage);
  /// Until it is called with false, damages are counted but not named: for a look at a file before it is read.
  void SetQuiet(bool isQuiet) { quiet = isQuiet; }
  size_t damages() const { return count; }
  /// Sets the count back to `before`: what was counted since will be found again.
  void Forget(size_t before) { count = before; }

 private:
  TextOutput& output;
  size_t count = 0;
  bool quiet = false;
};

/// Reads files line by line, with the time of each line, and hands on the lines that are wanted.
class LineReader : private LineSink {
 public:
  struct Options {
    bool verifiedOnly = false;
    bool tellsTitles = false;  ///< finds the title above polled rows
    bool blocks = false;       ///< hands on whole blocks: nobody asks about single lines
  };
  struct Callbacks {
    std::function<void(const Line&)> line;
    std::function<void(const char*, size_t)> block;  ///< used with Options::blocks
  };

  LineReader(const Options& how, Callbacks called, Report& reported)
      : options(how),
        callbacks(std::move(called)),
        report(reported),
        assembler(*this, [this](uint64_t offset, const std::string& what) {
          report.Say(fileName, "byte " + std::to_string(offset) + ": " + what, true);
        }) {}

  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  /// Opens the file at that place in the list; each Read() of it hands on lines. Null: it cannot be opened, which is
  /// reported.
  std::unique_ptr<FileReader> Open(const std::vector<LogFile>& files, size_t place);
  /// Ends the file: an unfinished line is handed on, or left out when its writer died and other files follow.
  void Finish(const LogFile& file, const FileReader& reader);
  /// Open(), Read() and Finish(), for a file that is read once.
  void ReadFile(const std::vector<LogFile>& files, size_t place);

 private:
  void OnLines(const char* text, size_t size, bool verified) override;
  void HandOn(Line& line);
  void NoteTitle(Line& line);

  const Options options;
  const Callbacks callbacks;
  Report& report;
  LineAssembler assembler;
  LineTimes times;
  std::string fileName;
  std::shared_ptr<const std::string> title;
  size_t lineNumber = 0;  ///< in the file
  bool rowsTellTime = false;
  bool afterEmptyLine = false;
  bool afterTimeLine = false;
};

/// The times around the file of that place.
LineTimes::FileTimes TimesAround(const std::vector<LogFile>& files, size_t place);

#endif  // QUILCAT_TOOLS_QUILLOG_LINE_READER_H_
