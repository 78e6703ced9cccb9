#ifndef QUILCAT_TOOLS_QUILLOG_REPORT_H_
#define QUILCAT_TOOLS_QUILLOG_REPORT_H_

#include <stddef.h>

#include <string>

#include "quillog/forms/text_output.h"

/// Names damages and failures on standard error, and remembers that there were any.
class Report {
 public:
  explicit Report(TextOutput& to) : output(to) {}
  /// "quillog: FILE: TEXT". With `isDamage` it counts as a damage, without it is only a remark. Of many damages of one
  /// file in a row the first are named, and then how many more there are.
  void Say(const std::string& file, const std::string& text, bool isDamage);
  /// Says how many damages were not named. Before the end.
  void Finish();
  /// From now on damages are counted but not named.
  void SetQuiet() { quiet = true; }
  size_t damages() const { return count; }

 private:
  void Write(const std::string& file, const std::string& text);

  TextOutput& output;
  size_t count = 0;
  bool quiet = false;
  std::string lastFile;
  size_t ofFile = 0;  ///< damages of it
};

#endif  // QUILCAT_TOOLS_QUILLOG_REPORT_H_
