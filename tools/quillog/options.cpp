#include "quillog/options.h"

#include <ctype.h>
#include <errno.h>
#include <getopt.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "quillog/forms/terminal.h"

namespace {

constexpr size_t kMostAround = 1000000;  // lines
constexpr size_t kFollowedLines = 10;

bool Wrong(const std::string& what, const char* text = nullptr) {
  fprintf(stderr, "quillog: %s%s%s\n", what.c_str(), text != nullptr ? ": " : "", text != nullptr ? text : "");
  return false;
}

// Arguments ---------------------------------------------------------------------------------------------------------

bool ParseCount(const char* text, size_t most, size_t* count) {
  char* end = nullptr;
  errno = 0;
  const unsigned long long number = strtoull(text, &end, 10);
  *count = static_cast<size_t>(number);
  return isdigit(static_cast<unsigned char>(*text)) != 0 && *end == '\0' && errno == 0 && number <= most;
}

bool ParseAround(const char* text, size_t* lines) {
  return ParseCount(text, kMostAround, lines) || Wrong("no number of lines up to " + std::to_string(kMostAround), text);
}

bool ParseBoot(const char* text, int* boot) {
  const bool isSigned = *text == '-' || *text == '+';
  size_t number = 0;
  const bool isNumber = ParseCount(text + (isSigned ? 1 : 0), 1000000, &number);
  *boot = *text == '-' ? -static_cast<int>(number) : static_cast<int>(number);
  return isNumber;
}

bool ParseForm(const char* text, Form* form) {
  static constexpr const char* kNames[] = {"text", "iso", "json", "csv"};
  static constexpr Form kForms[] = {Form::kText, Form::kIso, Form::kJson, Form::kCsv};
  for (size_t i = 0; i < std::size(kNames); ++i) {
    if (strcmp(text, kNames[i]) == 0) {
      *form = kForms[i];
      return true;
    }
  }
  return Wrong("no form of output, as text, iso, json or csv", text);
}

bool ParseColor(const char* when, bool* colored) {
  const bool isAuto = when == nullptr || strcmp(when, "auto") == 0;
  *colored = isAuto ? Terminal::TakesColors() : strcmp(when, "always") == 0;
  return isAuto || *colored || strcmp(when, "never") == 0 || Wrong("--color takes auto, always or never", when);
}

bool Do(Options::Action action, Options& options) {
  options.action = action;
  return true;
}

// The options ------------------------------------------------------------------------------------------------------

enum class Group { kByTime, kByText, kShown, kWhole, kOther, kUnlisted };

struct Row {
  const char* name;
  int letter;            ///< above every character: it has none
  const char* argument;  ///< as --help names it, in brackets where it may be missing; nullptr: none
  Group group;
  const char* help;
  /// Stores it; `argument` is null where there is none. False: it is wrong, which has been said.
  bool (*set)(const char* argument, Options& options);
};

enum : int { kLast = UCHAR_MAX + 1, kListBoots, kVerify, kVerifiedOnly, kUtc, kNoPager, kColor, kVersion };

/// All options. Of two letters and names that mean the same the first row is listed.
constexpr Row kRows[] = {
    {"since", 'S', "TIME", Group::kByTime,
     "from that time: \"2026-11-22 21:04\", \"11-22\", \"21:04\",\n\"yesterday\", \"2 hours ago\", \"@1830000000\"",
     [](const char* argument, Options& options) {
       options.since = argument;
       return *argument != 0 || Wrong("no time", "");
     }},
    {"until", 'U', "TIME", Group::kByTime, "up to that time",
     [](const char* argument, Options& options) {
       options.until = argument;
       return *argument != 0 || Wrong("no time", "");
     }},
    {"last", kLast, "SPAN", Group::kByTime, "the last of it, as the device lived it: 30s, 1h30m, 2d",
     [](const char* argument, Options& options) {
       return (TimeText::ParseDuration(argument, &options.last) && options.last > 0) ||
              Wrong("no span of time, as 30s, 1h30m or \"2 days\"", argument);
     }},
    {"boot", 'b', "[=N]", Group::kByTime,
     "of one boot: 0 the newest, -1 the one before it,\n1 the oldest, 2 the one after it",
     [](const char* argument, Options& options) {
       options.hasBoot = true;
       return argument == nullptr || ParseBoot(argument, &options.boot) ||
              Wrong("no number of a boot, as 0, -1 or 1", argument);
     }},
    {"lines", 'n', "N", Group::kByTime, "the last N, or \"all\"",
     [](const char* argument, Options& options) {
       options.hasLines = strcmp(argument, "all") != 0;
       options.hasAllLines = !options.hasLines;
       return options.hasAllLines || ParseCount(argument, SIZE_MAX, &options.lines) ||
              Wrong("no number of lines", argument);
     }},
    {"grep", 'g', "PATTERN", Group::kByText, "that match an expression, as egrep has it",
     [](const char* argument, Options& options) {
       options.hasPattern = true;
       options.pattern = argument;
       return true;
     }},
    {"ignore-case", 'i', nullptr, Group::kByText, "... in upper or lower case",
     [](const char*, Options& options) { return options.how.ignoreCase = true; }},
    {"fixed-strings", 'F', nullptr, Group::kByText, "... that hold the text as it is",
     [](const char*, Options& options) { return options.how.plain = true; }},
    {"invert-match", 'v', nullptr, Group::kByText, "... that do not match",
     [](const char*, Options& options) { return options.how.inverted = true; }},
    {"priority", 'p', "LEVEL", Group::kByText,
     "of a kernel level and severer ones, \"err\" or \"3\";\nof several, \"warning..err\"",
     [](const char* argument, Options& options) {
       options.hasLevels = true;
       return Levels::Parse(argument, &options.levels) ||
              Wrong("no level from emerg (0) to debug (7), nor two, as warning..err", argument);
     }},
    {"after-context", 'A', "N", Group::kByText, "and N lines after each",
     [](const char* argument, Options& options) { return ParseAround(argument, &options.after); }},
    {"before-context", 'B', "N", Group::kByText, "and N lines before each",
     [](const char* argument, Options& options) { return ParseAround(argument, &options.before); }},
    {"context", 'C', "N", Group::kByText, "and N lines on both sides",
     [](const char* argument, Options& options) {
       return ParseAround(argument, &options.before) && ParseAround(argument, &options.after);
     }},
    {"verified-only", kVerifiedOnly, nullptr, Group::kByText, "none whose checksum is missing",
     [](const char*, Options& options) { return options.verifiedOnly = true; }},
    {"follow", 'f', nullptr, Group::kShown,
     "go on with new lines, after the last ten unless -n,\n-b or a time says otherwise",
     [](const char*, Options& options) { return options.follow = true; }},
    {"reverse", 'r', nullptr, Group::kShown, "newest line first",
     [](const char*, Options& options) { return options.reverse = true; }},
    {"count", 'c', nullptr, Group::kShown, "only the number of lines",
     [](const char*, Options& options) { return options.count = true; }},
    {"merge", 'm', nullptr, Group::kShown, "several outputs as one, by time",
     [](const char*, Options& options) { return options.merge = true; }},
    {"output", 'o', "FORM", Group::kShown,
     "text, iso (the time comes first, as ISO 8601 has it),\njson (one object a line) or csv",
     [](const char* argument, Options& options) { return ParseForm(argument, &options.form); }},
    {"utc", kUtc, nullptr, Group::kShown, "the device showed UTC, not the time of this machine's\nzone (TZ)",
     [](const char*, Options& options) { return options.utc = true; }},
    {"color", kColor, "[=WHEN]", Group::kShown, "colours by kernel level: auto, always, never",
     [](const char* argument, Options& options) { return ParseColor(argument, &options.colored); }},
    {"colour", kColor, "[=WHEN]", Group::kUnlisted, nullptr,
     [](const char* argument, Options& options) { return ParseColor(argument, &options.colored); }},
    {"no-pager", kNoPager, nullptr, Group::kShown, "no stop at each full screen",
     [](const char*, Options& options) {
       options.paged = false;
       return true;
     }},
    {"list", 'l', nullptr, Group::kWhole, "a table of outputs and files",
     [](const char*, Options& options) { return Do(Options::Action::kList, options); }},
    {"list-boots", kListBoots, nullptr, Group::kWhole, "a table of boots",
     [](const char*, Options& options) { return Do(Options::Action::kListBoots, options); }},
    {"verify", kVerify, nullptr, Group::kWhole, "read everything and name each damage",
     [](const char*, Options& options) { return Do(Options::Action::kVerify, options); }},
    {"help", 'h', nullptr, Group::kOther, "this",
     [](const char*, Options& options) { return Do(Options::Action::kHelp, options); }},
    {"version", kVersion, nullptr, Group::kOther, "the version",
     [](const char*, Options& options) { return Do(Options::Action::kVersion, options); }},
};

constexpr struct {
  Group group;
  const char* title;
} kGroups[] = {{Group::kByTime, "Lines by time"},
               {Group::kByText, "Lines by what they say"},
               {Group::kShown, "How they are shown"},
               {Group::kWhole, "What there is"},
               {Group::kOther, "Other"}};

// Rows as getopt takes them -----------------------------------------------------------------------------------------

int ArgumentOf(const Row& row) {
  return row.argument == nullptr ? no_argument : row.argument[0] == '[' ? optional_argument : required_argument;
}

std::vector<option> LongOptions() {
  std::vector<option> options;
  for (const Row& row : kRows) {
    options.push_back({row.name, ArgumentOf(row), nullptr, row.letter});
  }
  options.push_back({nullptr, 0, nullptr, 0});
  return options;
}

std::string Letters() {
  std::string letters = ":";  // a missing argument is told apart from a wrong option
  for (const Row& row : kRows) {
    if (row.letter <= UCHAR_MAX) {
      letters += static_cast<char>(row.letter);
      letters.append(static_cast<size_t>(ArgumentOf(row)), ':');  // as getopt counts them: none, one, two
    }
  }
  return letters;
}

// What is wrong with an option --------------------------------------------------------------------------------------

const Row* RowOf(int letter) {
  const auto* const row =
      std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& r) { return r.letter == letter; });
  return row != std::end(kRows) ? row : nullptr;
}

std::string NameOf(const Row& row) {
  return row.letter <= UCHAR_MAX ? std::string("-") + static_cast<char>(row.letter) + " (--" + row.name + ")"
                                 : std::string("--") + row.name;
}

/// How many letters are missing, too many, wrong or exchanged with their neighbour.
size_t Distance(const std::string& a, const std::string& b) {
  std::vector<std::vector<size_t>> costs(a.size() + 1, std::vector<size_t>(b.size() + 1));
  for (size_t i = 0; i <= a.size(); ++i) {
    for (size_t j = 0; j <= b.size(); ++j) {
      size_t& cost = costs[i][j];
      cost = std::max(i, j);
      if (i > 0 && j > 0) {
        cost =
            std::min({costs[i - 1][j] + 1, costs[i][j - 1] + 1, costs[i - 1][j - 1] + (a[i - 1] != b[j - 1] ? 1 : 0)});
      }
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        cost = std::min(cost, costs[i - 2][j - 2] + 1);
      }
    }
  }
  return costs[a.size()][b.size()];
}

/// The names that begin with what was typed, or else the one nearest to it: "--last, --lines".
std::string Meant(const std::string& typed) {
  std::string names;
  const char* nearest = nullptr;
  size_t distance = typed.size() / 3 + 1;  // what is further away was not meant
  for (const Row& row : kRows) {
    if (strncmp(row.name, typed.c_str(), typed.size()) == 0) {
      names += (names.empty() ? "--" : ", --") + std::string(row.name);
    }
    if (const size_t found = Distance(typed, row.name); found < distance + (nearest == nullptr ? 1 : 0)) {
      distance = found;
      nearest = row.name;
    }
  }
  return names.empty() && nearest != nullptr ? std::string("--") + nearest : names;
}

/// Names an option that getopt refused: `letter` is its own, 0 for a name that there is not. `typed`: the argument.
bool NameWrong(int letter, const char* typed) {
  if (const Row* const row = letter == 0 ? nullptr : RowOf(letter)) {
    return Wrong(NameOf(*row) + " takes no argument");
  }
  const std::string name(typed, strcspn(typed, "="));
  const int other = islower(letter) != 0 ? toupper(letter) : tolower(letter);
  std::string meant = letter == 0 ? Meant(name.substr(2)) : "";
  if (const Row* const row = letter == 0 ? nullptr : RowOf(other)) {
    meant = NameOf(*row);
  }
  return Wrong("no option " + (letter == 0 ? name : std::string("-") + static_cast<char>(letter)) +
               (meant.empty() ? "" : "; did you mean " + meant + "?"));
}

/// True for what -b takes where it is the next argument.
bool IsBoot(const char* text) {
  int boot = 0;
  return text != nullptr && ParseBoot(text, &boot);
}

/// Options that exclude each other, or need one another.
bool StandTogether(const Options& options) {
  if (options.last != 0 && !(options.since.empty() && options.until.empty())) {
    return Wrong("--last stands alone, without --since and --until");
  }
  if (!options.hasPattern && (options.how.ignoreCase || options.how.plain || options.how.inverted)) {
    return Wrong("-i, -F and -v belong to --grep");
  }
  if (!options.hasPattern && !options.hasLevels && options.before + options.after > 0) {
    return Wrong("-A, -B and -C belong to --grep and --priority");
  }
  if (options.merge && (options.reverse || options.hasBoot || options.before + options.after > 0)) {
    return Wrong("--merge shows all boots, no lines around others, the oldest first: no -b, -A, -B, -C or -r there");
  }
  if (options.follow && (options.reverse || options.count || options.merge)) {
    return Wrong("--follow never comes to an end: no --reverse, --count or --merge there");
  }
  return options.action == Options::Action::kShow || !options.ChoosesText() ||
         Wrong("--list, --list-boots and --verify tell of whole files: no option chooses text or its form there");
}

/// "  -U, --until TIME        up to that time", and what more lines there are below the first.
std::string HelpOf(const Row& row) {
  constexpr size_t kColumn = 26;
  std::string text = row.letter <= UCHAR_MAX ? std::string("  -") + static_cast<char>(row.letter) + ", " : "      ";
  text += std::string("--") + row.name;
  if (row.argument != nullptr) {
    text += (row.argument[0] == '[' ? "" : " ") + std::string(row.argument);
  }
  text.resize(kColumn, ' ');
  for (const char* help = row.help; *help != '\0'; ++help) {
    text += *help == '\n' ? '\n' + std::string(kColumn, ' ') : std::string(1, *help);
  }
  return text + '\n';
}

}  // namespace

bool Options::ChoosesText() const {
  const bool choosesTime = last != 0 || !since.empty() || !until.empty();
  return follow || hasLines || hasAllLines || hasPattern || choosesTime || hasBoot || hasLevels || reverse || count ||
         merge || form != Form::kText || verifiedOnly;
}

bool ParseOptions(int argc, char** argv, Options* options) {
  const std::vector<option> names = LongOptions();
  const std::string letters = Letters();
  options->colored = Terminal::TakesColors();
  options->paged = Terminal::HasCursor();
  opterr = 0;
  for (int letter; optopt = 0, (letter = getopt_long(argc, argv, letters.c_str(), names.data(), nullptr)) != -1;) {
    if (letter == '?') {
      return NameWrong(optopt, argv[optind - 1]);
    }
    if (letter == ':') {
      return Wrong(NameOf(*RowOf(optopt)) + " takes an argument: " + RowOf(optopt)->argument);
    }
    if (letter == 'b' && optarg == nullptr && optind < argc && IsBoot(argv[optind])) {
      optarg = argv[optind++];
    }
    if (!RowOf(letter)->set(optarg, *options)) {
      return false;
    }
    if (options->action == Options::Action::kHelp || options->action == Options::Action::kVersion) {
      return true;
    }
  }
  options->paths.assign(argv + optind, argv + argc);
  if (!StandTogether(*options)) {
    return false;
  }
  const bool isChosen = options->last != 0 || !options->since.empty() || !options->until.empty() || options->hasBoot;
  if (options->follow && !options->hasLines && !options->hasAllLines && !isChosen) {
    options->hasLines = true;
    options->lines = kFollowedLines;
  }
  options->paged = options->paged && !options->follow && options->action != Options::Action::kVerify;
  return true;
}

std::string HelpText() {
  std::string text =
      "usage: quillog [OPTION]... [PATH]...\n"
      "\n"
      "Reads the logs of quilcat, oldest line first. PATH is an output, as\n"
      "/data/log/android_logs/kmsgcat-log, a directory, a file, a tar or zip that holds\n"
      "some, or - for standard input; without one, the directories in /data/log.\n";
  for (const auto& group : kGroups) {
    text += std::string("\n") + group.title + "\n";
    for (const Row& row : kRows) {
      text += row.group == group.group ? HelpOf(row) : "";
    }
  }
  return text + "\nStatus: 0 all read, 1 something was damaged, 2 nothing there or wrong usage.\n";
}
