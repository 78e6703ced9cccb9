// What outputs do to each other, and what nodes and outputs find on the device.

#include <algorithm>
#include <map>

#include "config/records.h"
#include "quilcheck/document.h"
#include "quilcheck/rules.h"

using namespace QuilCommon;

namespace Quilcheck {

namespace {

constexpr char kIndexAndTime[] = ".I000.20260101-000000.gz";
constexpr size_t kIndexedSuffix = sizeof kIndexAndTime - 1;
constexpr int kOldNumbers = 5;
constexpr size_t kFilesPerArchive = 5;

std::string Numbered(const std::string& path, size_t number) {
  return path + '.' + std::to_string(number);
}
std::string Archive(const std::string& path, size_t number) {
  return path + '-' + std::to_string(number) + ".tar.gz";
}

/// The path with single slashes and without "." steps.
std::string Normal(const std::string& path) {
  std::string normal;
  for (size_t start = 0; start < path.size();) {
    const size_t end = std::min(path.find('/', start), path.size());
    const std::string step = path.substr(start, end - start);
    if (!step.empty() && step != ".") {
      normal += '/' + step;
    }
    start = end + 1;
  }
  return normal;
}

/// One output with the names of its files. In each list paths are whole, spelled with `path` as it stands in the file:
/// the daemon compares and measures them so.
struct Output {
  Output(const ServiceReading& owner, const GroupReading& group)
      : service(&owner),
        line(LineOf(group.output)),
        path(group.Output()),
        directory(path.substr(0, path.rfind('/'))),
        base(path.substr(path.rfind('/') + 1)),
        mapped(owner.record->writeMode == WRITE_MMAP) {
    const size_t archives = std::min(owner.record->maxCompressdFiles, size_t{1000}) / kFilesPerArchive + 1;
    for (size_t i = 0; i < (mapped ? kOldNumbers : archives); ++i) {
      // In mapped mode what the other mode has left goes at the first rotation.
      own.push_back(Archive(path, i));
    }
    for (size_t i = mapped ? 0 : 1; i <= (mapped ? kOldNumbers - 1 : kOldNumbers); ++i) {
      own.push_back(Numbered(path, i));
    }
    own.push_back(path);
    if (!mapped) {
      own.push_back(path + "_tmp");
    }
  }

  /// Names, without the directory, of files that it makes.
  std::vector<std::string> Files() const {
    if (mapped) {
      return {base, base + ".1", base + kIndexAndTime};
    }
    return {base, base + ".1", base + ".5", Archive(base, 0), Archive(base, kFilesPerArchive)};
  }

  /// Whether its clean-up, or a file or link of its own, takes the place of file `name` in its directory.
  bool Takes(const std::string& name, bool isLink) const {
    const std::string full = directory + '/' + name;
    if (std::find(own.begin(), own.end(), full) != own.end()) {
      return true;
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
  std::vector<std::string> own;  ///< paths that it removes or replaces whatever stands there
};

/// A file of `victim` that `output` takes; empty when there is none.
std::string TakenFile(const Output& output, const Output& victim) {
  for (const std::string& name : victim.Files()) {
    const bool isLink = victim.mapped && (name == victim.base || name == victim.base + ".1");
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
  if (Normal(first.path) == Normal(second.path)) {
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

bool IsUsable(const GroupReading& group) {
  const std::string path = group.Output();
  return !path.empty() && path.front() == '/' && path.back() != '/';
}

/// An output that stands where another one needs a directory.
void CheckNesting(const std::vector<Output>& outputs, Findings* findings) {
  std::map<std::string, const Output*> byPath;
  for (const Output& output : outputs) {
    byPath.emplace(Normal(output.path), &output);
  }
  for (const Output& output : outputs) {
    std::string directory = Normal(output.directory);
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

void CheckNode(const NodeSetReading& set, const char* name, const char* path, const Root& root, bool streams,
               Findings* findings) {
  if (path == nullptr || *path != '/') {
    return;
  }
  const xmlNode* child = ChildOf(set.element, name);
  const int line = LineOf(child != nullptr ? child : set.element);
  const std::optional<struct stat> found = root.Look(path);
  const std::string what = name + (' ' + Quoted(path));
  if (!found.has_value()) {
    findings->Warning(line, what + " does not exist: " + (streams ? "the log stays empty" : "it cannot be read"));
  } else if (S_ISDIR(found->st_mode)) {
    findings->Warning(line, what + " is a directory: it cannot be read");
  } else if (streams && S_ISREG(found->st_mode) && Normal(path).rfind("/proc/", 0) != 0 &&
             Normal(path).rfind("/sys/", 0) != 0) {
    findings->Warning(line, what + " is a regular file: streamed, it is read again and again without a pause");
  }
}

void CheckOutputPath(const GroupReading& group, const Root& root, Findings* findings) {
  const std::string path = Normal(group.Output());
  const int line = LineOf(group.output);
  for (size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
    const std::string directory = path.substr(0, end);
    const std::optional<struct stat> found = root.Look(directory);
    if (found.has_value() && !S_ISDIR(found->st_mode)) {
      findings->Warning(
          line, "outputFilePath " + Quoted(path) + ": " + Quoted(directory) + " is not a directory: nothing is logged");
      return;
    }
  }
  const std::optional<struct stat> found = root.Look(path);
  if (found.has_value() && S_ISDIR(found->st_mode)) {
    findings->Warning(line, "outputFilePath " + Quoted(path) + " is a directory; did you mean a file in it?");
  }
}

}  // namespace

void CheckOutputs(const std::vector<ServiceReading>& services, Findings* findings) {
  std::vector<Output> outputs;
  for (const ServiceReading& service : services) {
    for (const GroupReading& group : service.groups) {
      if (IsUsable(group)) {
        outputs.emplace_back(service, group);
      }
    }
  }
  // Only outputs in one directory meet.
  std::map<std::string, std::vector<const Output*>> directories;
  for (const Output& output : outputs) {
    std::vector<const Output*>& neighbours = directories[Normal(output.directory)];
    for (const Output* earlier : neighbours) {
      CheckPair(*earlier, output, findings);
    }
    neighbours.push_back(&output);
  }
  CheckNesting(outputs, findings);
}

void CheckPaths(const ServiceReading& service, const Root& root, Findings* findings) {
  for (const GroupReading& group : service.groups) {
    if (IsUsable(group)) {
      CheckOutputPath(group, root, findings);
    }
    for (const NodeSetReading& set : group.nodeSets) {
      CheckNode(set, "dataPath", set.record->data_path, root, group.Streams(), findings);
      CheckNode(set, "titlePath", set.record->title_path, root, false, findings);
      for (const QuilcatStrList_t* path = set.record->alter_data_path; path != nullptr; path = path->next) {
        CheckNode(set, "alterdataPath", path->str, root, false, findings);
      }
    }
  }
}

}  // namespace Quilcheck
