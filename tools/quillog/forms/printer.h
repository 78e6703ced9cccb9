#ifndef QUILCAT_TOOLS_QUILLOG_FORMS_PRINTER_H_
#define QUILCAT_TOOLS_QUILLOG_FORMS_PRINTER_H_

#include <memory>
#include <string>
#include <vector>

#include "quillog/forms/text_output.h"
#include "quillog/lines/line.h"

/// How lines are written.
enum class Form { kText, kIso, kJson, kCsv };

/// Which log lines are of.
struct Source {
  std::string device;  ///< empty: this one
  std::string output;  ///< empty: files of no known output
  std::string label;   ///< what a text has before each line; empty: nothing
};

/// Writes lines in one form.
class Printer {
 public:
  static std::unique_ptr<Printer> Make(Form form, bool colored, TextOutput& output);
  virtual ~Printer() = default;

  /// The lines that follow are of that log, until the next call. Borrows it.
  void SetSource(const Source& of) { source = &of; }
  virtual void Print(const Line& line) = 0;
  /// True when Print() may be given whole runs of lines at once.
  virtual bool IsPlain() const { return false; }
  virtual void Print(const Run& run) { static_cast<void>(run); }
  /// Between two lines, where those between are left out.
  virtual void PrintGap() {}
  /// True when only polled rows and streamed lines are wanted, not the titles between them.
  virtual bool PrintsRowsOnly() const { return false; }

  /// After the last line: what could not be printed, for a person; empty when nothing was left out.
  virtual std::string Complaint() const { return {}; }

 protected:
  const Source none = {};
  const Source* source = &none;
};

/// The columns of a polled row or title, separated by blanks. "Read Fail", which takes the place of a value, is one
/// column.
struct Column {
  std::string text;
  size_t start = 0;  ///< in the line
};
std::vector<Column> SplitColumns(const std::string& line, size_t from);

#endif  // QUILCAT_TOOLS_QUILLOG_FORMS_PRINTER_H_
