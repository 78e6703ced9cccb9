// quilcheck: says what the daemon will make of a configuration file, before it ships.

#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

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
    "  -W, --warnings          warnings count as errors\n"
    "  -o, --output text|json  form of the report\n"
    "  -p, --property KEY=VALUE\n"
    "                          assumes a system property\n"
    "  -r, --root DIR          looks up nodes and directories in DIR, an unpacked image\n"
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

void ApplyOption(int letter, const char* value, Options* options) {
  switch (letter) {
    case 's':
      options->request.service = value;
      break;
    case 'q':
      options->quiet = true;
      break;
    case 'W':
      options->warningsCount = true;
      break;
    case 'o':
      options->json = strcmp(value, "json") == 0;
      if (!options->json && strcmp(value, "text") != 0) {
        Refuse("-o takes text or json, not " + Quoted(value));
      }
      break;
    case 'p':
      AddProperty(value, &options->request.properties);
      break;
    case 'r':
      options->request.root = value;
      break;
    case 'h':
      fputs(kUsage, stdout);
      exit(0);
    default:
      fputs(kUsage, stderr);
      exit(kUnreadable);
  }
}

Options ReadOptions(int argc, char** argv) {
  static constexpr option kLong[] = {
      {"service", required_argument, nullptr, 's'},  {"quiet", no_argument, nullptr, 'q'},
      {"warnings", no_argument, nullptr, 'W'},       {"output", required_argument, nullptr, 'o'},
      {"property", required_argument, nullptr, 'p'}, {"root", required_argument, nullptr, 'r'},
      {"help", no_argument, nullptr, 'h'},           {nullptr, 0, nullptr, 0}};
  Options options;
  int letter;
  while ((letter = getopt_long(argc, argv, "s:qWo:p:r:h", kLong, nullptr)) != -1) {
    ApplyOption(letter, optarg, &options);
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
    printf("%s:%d: %s: %s\n", file.c_str(), finding.line, finding.severity == Severity::Error ? "error" : "warning",
           Printable(finding.text).c_str());
  }
  if (quiet) {
    return;
  }
  for (const ServiceReading& service : report.services) {
    fputs(Summary(service).c_str(), stdout);
  }
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
