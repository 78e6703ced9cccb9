#include "quillog/options.h"

#include <ctype.h>
#include <errno.h>
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

const char kUsage[] =
    "usage: quillog [OPTION]... [PATH]...\n"
    "\n"
    "Reads the logs of quilcat, oldest line first. PATH is an output, as\n"
    "/data/log/android_logs/kmsgcat-log, a directory or a file; without one, the\n"
    "directories in /data/log.\n"
    "\n"
    "  -S, --since TIME    lines from that time: \"2026-11-22\", \"2026-11-22 21:04:05\",\n"
    "                      \"11-22 21:04\", \"21:04\", \"2h ago\"\n"
    "  -U, --until TIME    lines up to that time\n"
    "      --last SPAN     lines of the time before the newest: 30s, 5m, 1h, 2d\n"
    "  -n, --lines N       the last N lines\n"
    "  -g, --grep REGEX    lines that match a POSIX extended expression\n"
    "  -i                  ... in upper or lower case\n"
    "  -v                  ... that do not match\n"
    "  -f, --follow        go on with new lines\n"
    "  -l, --list          a table of outputs and files\n"
    "      --verify        read everything and name each damage\n"
    "  -o, --output FORM   text, json (one object a line) or csv\n"
    "      --verified-only leave out lines whose checksum is missing\n"
    "      --color[=WHEN]  colours by kernel level: auto, always, never\n"
    "  -h, --help\n"
    "      --version\n"
    "\n"
    "Status: 0 all read, 1 something was damaged, 2 nothing there or wrong usage.\n";

namespace {

enum : int { kLast = 256, kVerify, kVerifiedOnly, kColor, kVersion };

constexpr option kLongOptions[] = {
    {"since", required_argument, nullptr, 'S'},
    {"until", required_argument, nullptr, 'U'},
    {"last", required_argument, nullptr, kLast},
    {"lines", required_argument, nullptr, 'n'},
    {"grep", required_argument, nullptr, 'g'},
    {"follow", no_argument, nullptr, 'f'},
    {"list", no_argument, nullptr, 'l'},
    {"verify", no_argument, nullptr, kVerify},
    {"output", required_argument, nullptr, 'o'},
    {"verified-only", no_argument, nullptr, kVerifiedOnly},
    {"color", optional_argument, nullptr, kColor},
    {"colour", optional_argument, nullptr, kColor},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, kVersion},
    {nullptr, 0, nullptr, 0},
};

bool Wrong(const char* what, const char* text) {
  fprintf(stderr, "quillog: %s%s%s\n", what, text != nullptr ? ": " : "", text != nullptr ? text : "");
  return false;
}

bool ParseCount(const char* text, size_t* count) {
  char* end = nullptr;
  errno = 0;
  const unsigned long long number = strtoull(text, &end, 10);
  *count = static_cast<size_t>(number);
  return isdigit(static_cast<unsigned char>(*text)) && *end == '\0' && errno == 0;
}

bool ParseFormat(const char* text, Printer::Format* format) {
  static constexpr const char* kNames[] = {"text", "json", "csv"};
  static constexpr Printer::Format kFormats[] = {Printer::Format::kText, Printer::Format::kJson, Printer::Format::kCsv};
  for (size_t i = 0; i < 3; ++i) {
    if (strcmp(text, kNames[i]) == 0) {
      *format = kFormats[i];
      return true;
    }
  }
  return false;
}

bool IsColorTerminal() {
  const char* terminal = getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && terminal != nullptr && strcmp(terminal, "dumb") != 0;
}

bool ParseColor(const char* when, bool* colored) {
  *colored = when == nullptr || strcmp(when, "auto") == 0 ? IsColorTerminal() : strcmp(when, "always") == 0;
  return when == nullptr || strcmp(when, "auto") == 0 || strcmp(when, "always") == 0 || strcmp(when, "never") == 0;
}

/// Stores one option. False: it is wrong, which has been said.
bool ParseOption(int letter, const char* argument, Options* options) {
  switch (letter) {
    case 'S':
      options->since = argument;
      return *argument != '\0' || Wrong("no time", "");
    case 'U':
      options->until = argument;
      return *argument != '\0' || Wrong("no time", "");
    case kLast:
      return (TimeText::ParseDuration(argument, &options->last) && options->last > 0) ||
             Wrong("no span of time, as 30s, 5m, 1h or 2d", argument);
    case 'n':
      options->hasLines = true;
      return ParseCount(argument, &options->lines) || Wrong("no number of lines", argument);
    case 'g':
      options->hasPattern = true;
      options->pattern = argument;
      return true;
    case 'i':
      return options->ignoreCase = true;
    case 'v':
      return options->invert = true;
    case 'f':
      return options->follow = true;
    case 'l':
      options->action = Options::Action::kList;
      return true;
    case kVerify:
      options->action = Options::Action::kVerify;
      return true;
    case 'o':
      return ParseFormat(argument, &options->format) || Wrong("no form of output, as text, json or csv", argument);
    case kVerifiedOnly:
      return options->verifiedOnly = true;
    case kColor:
      return ParseColor(argument, &options->colored) || Wrong("--color takes auto, always or never", argument);
    case 'h':
      options->action = Options::Action::kHelp;
      return true;
    case kVersion:
      options->action = Options::Action::kVersion;
      return true;
    default:
      return false;  // getopt has named it
  }
}

}  // namespace

bool ParseOptions(int argc, char** argv, Options* options) {
  options->colored = IsColorTerminal();
  for (int letter; (letter = getopt_long(argc, argv, "S:U:n:g:ivflo:h", kLongOptions, nullptr)) != -1;) {
    if (!ParseOption(letter, optarg, options)) {
      return false;
    }
    if (options->action == Options::Action::kHelp || options->action == Options::Action::kVersion) {
      return true;
    }
  }
  options->paths.assign(argv + optind, argv + argc);
  if (options->last != 0 && !(options->since.empty() && options->until.empty())) {
    return Wrong("--last stands alone, without --since and --until", nullptr);
  }
  if (!options->hasPattern && (options->ignoreCase || options->invert)) {
    return Wrong("-i and -v belong to --grep", nullptr);
  }
  const bool choosesText = options->follow || options->hasLines || options->hasPattern || options->last != 0 ||
                           !options->since.empty() || !options->until.empty() ||
                           options->format != Printer::Format::kText || options->verifiedOnly;
  if (options->action != Options::Action::kShow && choosesText) {
    return Wrong("--list and --verify tell of whole files: no option chooses text or its form there", nullptr);
  }
  return true;
}
