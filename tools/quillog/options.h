#ifndef QUILCAT_TOOLS_QUILLOG_OPTIONS_H_
#define QUILCAT_TOOLS_QUILLOG_OPTIONS_H_

#include <string>
#include <vector>

#include "quillog/forms/printer.h"

/// What the command line asks for.
struct Options {
  enum class Action { kShow, kList, kVerify, kHelp, kVersion };

  Action action = Action::kShow;
  std::vector<std::string> paths;
  std::string since;  ///< as given; empty: not
  std::string until;
  Time last = 0;  ///< milliseconds back from the newest line; 0: not
  bool hasLines = false;
  size_t lines = 0;
  bool hasPattern = false;
  std::string pattern;
  bool ignoreCase = false;
  bool invert = false;
  bool follow = false;
  bool verifiedOnly = false;
  bool colored = false;
  Printer::Format format = Printer::Format::kText;
};

/// False: wrong usage, which is named on standard error.
bool ParseOptions(int argc, char** argv, Options* options);

extern const char kUsage[];

#endif  // QUILCAT_TOOLS_QUILLOG_OPTIONS_H_
