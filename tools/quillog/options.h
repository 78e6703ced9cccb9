#ifndef QUILCAT_TOOLS_QUILLOG_OPTIONS_H_
#define QUILCAT_TOOLS_QUILLOG_OPTIONS_H_

#include <string>
#include <vector>

#include "quillog/forms/printer.h"
#include "quillog/lines/levels.h"
#include "quillog/select/pattern.h"
#include "quillog/time/time_text.h"

/// What the command line asks for. Numbers are in range; what is stored together may stand together.
struct Options {
  enum class Action { kShow, kList, kListBoots, kVerify, kHelp, kVersion };

  Action action = Action::kShow;
  std::vector<std::string> paths;

  // Which lines.
  std::string since;  ///< as given, see TimeText::Parse(); empty: not
  std::string until;
  Time last = 0;  ///< milliseconds back from the newest line; 0: not
  bool hasBoot = false;
  int boot = 0;  ///< 0 and below: the newest, the one before it, ...; 1 and above: the oldest, the one after it, ...
  bool hasLines = false;     ///< with --follow too, unless all lines are wanted or some were chosen by time or boot
  bool hasAllLines = false;  ///< asked for as such
  size_t lines = 0;          ///< the last ones
  bool hasPattern = false;
  std::string pattern;
  Pattern::How how;
  bool hasLevels = false;
  Levels::Range levels;
  size_t before = 0;  ///< lines around each that matches
  size_t after = 0;
  bool verifiedOnly = false;

  // How they are shown.
  bool follow = false;
  bool reverse = false;
  bool count = false;  ///< their number instead
  bool merge = false;
  Form form = Form::kText;
  bool utc = false;
  bool colored = false;
  bool paged = false;  ///< text is to be shown a screen at a time

  /// True when lines are chosen, or how they are shown.
  bool ChoosesText() const;
};

/// False: wrong usage, which is named on standard error.
bool ParseOptions(int argc, char** argv, Options* options);

/// What --help prints.
std::string HelpText();

#endif  // QUILCAT_TOOLS_QUILLOG_OPTIONS_H_
