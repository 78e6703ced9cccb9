// What outputs do to each other.

#include <algorithm>
#include <map>
#include <set>
#include <string_view>

#include "config/records.h"
#include "logfile/file_names.h"
#include "quilcheck/document.h"
#include "quilcheck/report.h"
#include "quilcheck/rules.h"

using namespace QuilCommon;

namespace Quilcheck {

namespace {

// Each output may clash with each; whoever has mended so many asks again.
constexpr size_t kMostFindings = 10000;

using Suffixes = std::set<std::string, std::less<>>;

/// One output, its paths spelled as in the file: the daemon compares and measures them so.
struct Output {
  Output(const ServiceReading& owner, const GroupReading& group)
      : service(&owner),
        line(LineOf(group.output)),
        path(group.Output()),
        directory(path.substr(0, path.rfind('/'))),
        base(path.substr(path.rfind('/') + 1)),
        mapped(owner.record->writeMode == WRITE_MMAP),
        archives(static_cast<int>(FilesKept(owner))),
        normal(NormalPath(path)),
        madeNames(MadeNames()),
        replacedSuffixes(ReplacedSuffixes()),
        directoryHasBase((directory + '/').find(base) != std::string::npos),
        directoryHasGz((directory + '/').find(FileNames::kGzip) != std::string::npos) {}

  /// The files that it makes: an example of each kind and length of name, and whether it is a link.
  std::vector<std::pair<std::string, bool>> MadeNames() const {
    if (mapped) {
      return {
          {base, true}, {FileNames::previousLink(base), true}, {FileNames::indexed(base, 0, "20260101-000000"), false}};
    }
    std::vector<std::pair<std::string, bool>> names = {{base, false},
                                                       {FileNames::rotated(base, 1), false},
                                                       {FileNames::rotated(base, FileNames::kFilesPerArchive), false}};
    for (int number = 0; number < archives; number = number == 0 ? 10 : number * 10) {
      names.emplace_back(FileNames::archive(base, number), false);
    }
    return names;
  }

  /// What stands behind its path in names that it removes or replaces whatever stands there. In mmap mode these are its
  /// links, and what factory mode may have left.
  Suffixes ReplacedSuffixes() const {
    if (mapped) {
      const std::vector<std::string> old = FileNames::oldStyle("");
      Suffixes suffixes(old.begin(), old.end());
      suffixes.insert({"", FileNames::previousLink("")});
      return suffixes;
    }
    Suffixes suffixes = {"", FileNames::packingDirectory("")};
    for (int number = 1; number <= FileNames::kFilesPerArchive; ++number) {
      suffixes.insert(FileNames::rotated("", number));
    }
    for (int number = 0; number < archives; ++number) {
      suffixes.insert(FileNames::archive("", number));
    }
    return suffixes;
  }

  /// Whether it takes a file `name` of its directory: by a file or link of its own, or in its clean-up. That takes what
  /// has its base name and ".gz" anywhere in the path, in factory mode only at the length of an indexed name.
  bool Takes(const std::string& name, bool isLink) const {
    if (name.compare(0, base.size(), base) == 0 &&
        replacedSuffixes.find(std::string_view(name).substr(base.size())) != replacedSuffixes.end()) {
      return true;
    }
    const bool hasBase = directoryHasBase || name.find(base) != std::string::npos;
    const bool hasGz = directoryHasGz || name.find(FileNames::kGzip) != std::string::npos;
    const bool isIndexed = name.size() == base.size() + FileNames::kSuffixLength;
    return hasBase && hasGz && !isLink && (mapped || isIndexed);
  }

  const ServiceReading* service;
  int line;
  std::string path;
  std::string directory;
  std::string base;
  bool mapped;
  int archives;        ///< kept in factory mode
  std::string normal;  ///< its path as others may spell it
  std::vector<std::pair<std::string, bool>> madeNames;
  Suffixes replacedSuffixes;
  bool directoryHasBase;
  bool directoryHasGz;
};

/// A file of `victim` that `output` takes; empty when there is none.
std::string TakenFile(const Output& output, const Output& victim) {
  for (const auto& [name, isLink] : victim.madeNames) {
    if (output.Takes(name, isLink)) {
      return victim.directory + '/' + name;
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

void CompareOutputs(const std::vector<Output>& outputs, Findings* findings) {
  // Only outputs in one directory meet.
  std::map<std::string, std::vector<const Output*>> directories;
  std::map<std::string, const Output*> byPath;
  for (const Output& output : outputs) {
    const auto [first, isNew] = byPath.emplace(output.normal, &output);
    if (!isNew) {
      Report(output, *first->second,
             "outputFilePath " + Quoted(output.path) + " is that of line " + std::to_string(first->second->line) +
                 ": two groups write into one log",
             findings);
    }
    std::vector<const Output*>& neighbours = directories[NormalPath(output.directory)];
    for (const Output* earlier : neighbours) {
      if (earlier->normal != output.normal && findings->All().size() < kMostFindings) {
        CheckPair(*earlier, output, findings);
      }
    }
    neighbours.push_back(&output);
  }
}

/// An output that stands where another one needs a directory.
void CheckNesting(const std::vector<Output>& outputs, Findings* findings) {
  std::map<std::string, const Output*> byPath;
  for (const Output& output : outputs) {
    byPath.emplace(output.normal, &output);
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
  CompareOutputs(outputs, findings);
  CheckNesting(outputs, findings);
}

}  // namespace Quilcheck
