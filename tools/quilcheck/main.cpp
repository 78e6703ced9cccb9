// quilcheck: says what the daemon will make of a configuration file, before it ships.

#include <ctype.h>
#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "quilcheck/grammar.h"
#include "quilcheck/report.h"

using namespace Quilcheck;

namespace {

constexpr int kFound = 1;
constexpr int kUnreadable = 2;

constexpr char kUsage[] =
    "usage: quilcheck [OPTION]... [FILE]\n"
    "Checks a configuration file; without FILE, the one that the daemon would take.\n\n"
    "  -s, --service NAME      this service only\n"
    "  -q, --quiet             findings only, no tables\n"
    "  -v, --verbose           notes too\n"
    "  -W, --warnings          warnings count as errors\n"
    "  -o, --output text|json  form of the report\n"
    "  -p, --property KEY=VALUE\n"
    "                          assumes a system property\n"
    "  -r, --root DIR          looks up nodes and directories in DIR, an unpacked image\n"
    "      --rc FILE           compares the services with those that this init file starts\n"
    "      --disk SIZE         what all logs may take together: 512M, 2G\n"
    "      --explain ID        tells about a rule; the id ends each finding\n"
    "      --help-elements     tells what a file consists of\n"
    "      --schema            the same for editors, as an XML Schema\n"
    "      --version\n"
    "  -h, --help\n\n"
    "Status: 0 nothing that counts, 1 findings that count, 2 unreadable.\n";

struct Options {
  Request request;
  bool quiet = false;
  bool warningsCount = false;
  bool json = false;
};

[[noreturn]] void Refuse(const std::string& text) {
  fprintf(stderr, "quilcheck: %s\n", Printable(text).c_str());
  exit(kUnreadable);
}

void AddProperty(const std::string& text, Properties* properties) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0) {
    Refuse("-p takes KEY=VALUE, not " + Quoted(text));
  }
  (*properties)[text.substr(0, equals)] = text.substr(equals + 1);
}

/// "512M": KiB.
unsigned long long ReadSize(const std::string& text) {
  constexpr char kUnits[] = "KMGT";
  char* unit = nullptr;
  unsigned long long size = strtoull(text.c_str(), &unit, 10);
  const char* known = *unit != '\0' ? strchr(kUnits, toupper(static_cast<unsigned char>(*unit))) : nullptr;
  if (!isdigit(static_cast<unsigned char>(text[0])) || known == nullptr || unit[1] != '\0' || size == 0 ||
      size > 1 << 20) {
    Refuse("--disk takes a size, 512M say, not " + Quoted(text));
  }
  return size << 10 * (known - kUnits);
}

[[noreturn]] void Print(const std::string& text) {
  fputs(text.c_str(), stdout);
  exit(0);
}

[[noreturn]] void Explain(const std::string& id) {
  const auto rule = Rules().find(id);
  if (rule == Rules().end()) {
    std::vector<std::string> ids;
    for (const auto& [known, unused] : Rules()) {
      ids.push_back(known);
    }
    Refuse("no rule has the id " + Quoted(id) + HintAmong(ids, id));
  }
  std::string text, line = id + " (" + NameOf(rule->second.severity) + "):";
  for (const std::string& word : Words(rule->second.text)) {
    if (line.size() + word.size() > 78) {
      text += line + '\n';
      line = " ";
    }
    line += ' ' + word;
  }
  Print(text + line + '\n');
}

constexpr struct {
  const char* name;
  char letter;  ///< 0: it has none
  bool hasValue;
  void (*apply)(const char* value, Options* options);
} kOptions[] = {
    {"service", 's', true, [](const char* value, Options* options) { options->request.service = value; }},
    {"quiet", 'q', false, [](const char*, Options* options) { options->quiet = true; }},
    {"verbose", 'v', false, [](const char*, Options* options) { options->request.notes = true; }},
    {"warnings", 'W', false, [](const char*, Options* options) { options->warningsCount = true; }},
    {"output", 'o', true,
     [](const char* value, Options* options) {
       options->json = strcmp(value, "json") == 0;
       if (!options->json && strcmp(value, "text") != 0) {
         Refuse("-o takes text or json, not " + Quoted(value));
       }
     }},
    {"property", 'p', true,
     [](const char* value, Options* options) { AddProperty(value, &options->request.properties); }},
    {"root", 'r', true, [](const char* value, Options* options) { options->request.root = value; }},
    {"rc", 0, true, [](const char* value, Options* options) { options->request.initFile = value; }},
    {"disk", 0, true, [](const char* value, Options* options) { options->request.diskKilobytes = ReadSize(value); }},
    {"explain", 0, true, [](const char* value, Options*) { Explain(value); }},
    {"help-elements", 0, false, [](const char*, Options*) { Print(ElementTable()); }},
    {"schema", 0, false, [](const char*, Options*) { Print(Schema()); }},
    {"version", 0, false, [](const char*, Options*) { Print("quilcheck " QUILCAT_VERSION "\n"); }},
    {"help", 'h', false, [](const char*, Options*) { Print(kUsage); }},
};

Options ReadOptions(int argc, char** argv) {
  std::string letters;
  std::vector<option> names;
  for (const auto& known : kOptions) {
    const int index = static_cast<int>(names.size());
    names.push_back({known.name, known.hasValue ? required_argument : no_argument, nullptr,
                     known.letter != 0 ? known.letter : 256 + index});
    letters += known.letter != 0 ? std::string(1, known.letter) + (known.hasValue ? ":" : "") : "";
  }
  names.push_back({});
  Options options;
  int code;
  while ((code = getopt_long(argc, argv, letters.c_str(), names.data(), nullptr)) != -1) {
    const auto name =
        std::find_if(names.begin(), names.end() - 1, [code](const option& known) { return known.val == code; });
    if (name == names.end() - 1) {
      fputs(kUsage, stderr);
      exit(kUnreadable);
    }
    kOptions[name - names.begin()].apply(optarg, &options);
  }
  if (argc - optind > 1) {
    Refuse("one file at a time");
  }
  if (optind < argc) {
    options.request.file = argv[optind];
    if (options.request.file.empty()) {
      Refuse("no file has an empty name");
    }
  }
  return options;
}

void PrintText(const Report& report, bool quiet) {
  const std::string file = Printable(report.file);
  for (const Finding& finding : report.findings.All()) {
    printf("%s:%d: %s: %s [%s]\n", file.c_str(), finding.line, NameOf(finding.severity),
           Printable(finding.text).c_str(), finding.id.c_str());
  }
  if (quiet) {
    return;
  }
  for (const ServiceReading& service : report.services) {
    fputs(Summary(service).c_str(), stdout);
  }
  const unsigned long long total = TotalKilobytes(report);
  printf("\nall logs together: at most %s\n", total != 0 ? SizeText(total).c_str() : "without bound");
}

}  // namespace

int main(int argc, char** argv) {
  const Options options = ReadOptions(argc, argv);
  Report report;
  std::string reason;
  if (!Check(options.request, &report, &reason)) {
    Refuse(reason);
  }
  if (options.json) {
    fputs(Json(report, !options.quiet).c_str(), stdout);
  } else {
    PrintText(report, options.quiet);
  }
  if (fflush(stdout) != 0) {
    Refuse("cannot write the report");
  }
  const bool counts = report.findings.Count(Severity::Error) > 0 ||
                      (options.warningsCount && report.findings.Count(Severity::Warning) > 0);
  return counts ? kFound : 0;
}
