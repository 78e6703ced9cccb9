// What outputs do to each other.

#include <algorithm>
#include <map>

#include "config/records.h"
#include "quilcheck/document.h"
#include "quilcheck/report.h"
#include "quilcheck/rules.h"

using namespace QuilCommon;

namespace Quilcheck {

namespace {

constexpr char kIndexAndTime[] = ".I000.20260101-000000.gz";
constexpr size_t kIndexedSuffix = sizeof kIndexAndTime - 1;
constexpr size_t kRotatedFiles = 5;
constexpr size_t kOldNumbers = 5;

std::string Number(size_t number) {
  return '.' + std::to_string(number);
}
std::string Archive(size_t number) {
  return '-' + std::to_string(number) + ".tar.gz";
}

/// One output, its paths spelled as in the file: the daemon compares and measures them so.
struct Output {
  Output(const ServiceReading& owner, const GroupReading& group)
      : service(&owner),
        line(LineOf(group.output)),
        path(group.Output()),
        directory(path.substr(0, path.rfind('/'))),
        base(path.substr(path.rfind('/') + 1)),
        mapped(owner.record->writeMode == WRITE_MMAP),
        archives(FilesKept(owner)),
        madeSuffixes(MadeSuffixes()) {}

  /// What stands behind its path in names of files that it makes: an example of each kind and length.
  std::vector<std::string> MadeSuffixes() const {
    if (mapped) {
      return {"", ".1", kIndexAndTime};
    }
    std::vector<std::string> suffixes = {"", ".1", Number(kRotatedFiles)};
    for (size_t number = 0; number < archives; number = number == 0 ? 10 : number * 10) {
      suffixes.push_back(Archive(number));
    }
    return suffixes;
  }

  /// The same for names that it removes or replaces whatever stands there. In mmap mode these are its links, and what
  /// factory mode may have left.
  std::vector<std::string> ReplacedSuffixes() const {
    std::vector<std::string> suffixes = {"", mapped ? ".0" : "_tmp"};
    for (size_t number = 1; number <= (mapped ? kOldNumbers - 1 : kRotatedFiles); ++number) {
      suffixes.push_back(Number(number));
    }
    for (size_t number = 0; number < (mapped ? kOldNumbers : archives); ++number) {
      suffixes.push_back(Archive(number));
    }
    return suffixes;
  }

  /// Whether it takes a file `name` of its directory: by a file or link of its own, or in its clean-up. That takes what
  /// has its base name and ".gz" anywhere in the path, in factory mode only at the length of an indexed name.
  bool Takes(const std::string& name, bool isLink) const {
    const std::string full = directory + '/' + name;
    if (full.compare(0, path.size(), path) == 0) {
      const std::vector<std::string> suffixes = ReplacedSuffixes();
      if (std::find(suffixes.begin(), suffixes.end(), full.substr(path.size())) != suffixes.end()) {
        return true;
      }
    }
    const bool looksLikeOwn = full.find(base) != std::string::npos && full.find(".gz") != std::string::npos;
    const bool isIndexed = full.size() == path.size() + kIndexedSuffix;
    return looksLikeOwn && !isLink && (mapped || isIndexed);
  }

  const ServiceReading* service;
  int line;
  std::string path;
  std::string directory;
  std::string base;
  bool mapped;
  size_t archives;  ///< kept in factory mode
  std::vector<std::string> madeSuffixes;
};

/// A file of `victim` that `output` takes; empty when there is none.
std::string TakenFile(const Output& output, const Output& victim) {
  for (const std::string& suffix : victim.madeSuffixes) {
    const bool isLink = victim.mapped && suffix != kIndexAndTime;
    if (output.Takes(victim.base + suffix, isLink)) {
      return victim.path + suffix;
    }
  }
  return "";
}

void Report(const Output& first, const Output& second, const std::string& text, Findings* findings) {
  findings->SetService(first.service->name);
  findings->Error(first.line, text);
  findings->AlsoAbout(second.service->name);
  findings->SetService("");
}

void CheckPair(const Output& first, const Output& second, Findings* findings) {
  if (NormalPath(first.path) == NormalPath(second.path)) {
    Report(second, first,
           "outputFilePath " + Quoted(second.path) + " is that of line " + std::to_string(first.line) +
               ": two groups write into one log",
           findings);
    return;
  }
  const auto report = [findings](const Output& output, const Output& victim) {
    const std::string file = TakenFile(output, victim);
    if (!file.empty()) {
      Report(output, victim,
             "the clean-up of outputFilePath " + Quoted(output.path) + " takes " + Quoted(file) +
                 ", a file of the output in line " + std::to_string(victim.line) +
                 "; did you mean a directory for each?",
             findings);
    }
  };
  report(first, second);
  report(second, first);
}

/// An output that stands where another one needs a directory.
void CheckNesting(const std::vector<Output>& outputs, Findings* findings) {
  std::map<std::string, const Output*> byPath;
  for (const Output& output : outputs) {
    byPath.emplace(NormalPath(output.path), &output);
  }
  for (const Output& output : outputs) {
    std::string directory = NormalPath(output.directory);
    while (!directory.empty()) {
      const auto found = byPath.find(directory);
      if (found != byPath.end()) {
        Report(output, *found->second,
               "outputFilePath " + Quoted(output.path) + " needs a directory where line " +
                   std::to_string(found->second->line) + " has a log",
               findings);
      }
      directory.erase(directory.rfind('/'));
    }
  }
}

}  // namespace

void CheckOutputs(const std::vector<ServiceReading>& services, Findings* findings) {
  std::vector<Output> outputs;
  for (const ServiceReading& service : services) {
    for (const GroupReading& group : service.groups) {
      if (HasUsableOutput(group)) {
        outputs.emplace_back(service, group);
      }
    }
  }
  // Only outputs in one directory meet.
  std::map<std::string, std::vector<const Output*>> directories;
  for (const Output& output : outputs) {
    std::vector<const Output*>& neighbours = directories[NormalPath(output.directory)];
    for (const Output* earlier : neighbours) {
      CheckPair(*earlier, output, findings);
    }
    neighbours.push_back(&output);
  }
  CheckNesting(outputs, findings);
}

}  // namespace Quilcheck
