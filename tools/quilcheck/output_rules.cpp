// What outputs do to each other.

#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>
#include <string_view>

#include "config/quil_config.h"
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
  Output(const ServiceReading& owner, const GroupReading& group, const Root* root)
      : service(&owner),
        element(group.output),
        path(group.Output()),
        directory(path.substr(0, path.rfind('/'))),
        base(path.substr(path.rfind('/') + 1)),
        mapped(owner.record->writeMode == WRITE_MMAP),
        archives(static_cast<int>(FilesKept(owner))),
        placeDirectory(root != nullptr ? root->Resolved(directory) : NormalPath(directory)),
        place(placeDirectory + '/' + base),
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

  /// Whether `name` of its directory is that of a file, link or directory of its own, now or at some time.
  bool Uses(const std::string& name) const {
    if (name == base || (mapped && name == FileNames::previousLink(base))) {
      return true;
    }
    return mapped ? FileNames::parseIndexed(name).output == base
                  : FileNames::outputOfRotated(name) == base || FileNames::outputOfArchive(name) == base ||
                        FileNames::outputOfPackingDirectory(name) == base;
  }

  const ServiceReading* service;
  const xmlNode* element;
  std::string path;
  std::string directory;
  std::string base;
  bool mapped;
  int archives;                ///< kept in factory mode
  std::string placeDirectory;  ///< without links and steps, like the next
  std::string place;
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

using Directories = std::map<std::string, std::vector<const Output*>>;

std::string LineText(const Output& output) {
  return "the output in line " + std::to_string(LineOf(output.element));
}

/// Checks the outputs of all services; its methods are the rules.
class OutputRules {
 public:
  OutputRules(const std::vector<Output>& all, const Root* top, Findings* list)
      : outputs(all), root(top), findings(list) {
    for (const Output& output : outputs) {
      directories[output.placeDirectory].push_back(&output);
    }
  }

  void CheckPlace(const Output& output) const;
  void CheckPath(const Output& output) const;
  void CheckNesting(const Output& output) const;
  void ComparePairs() const;
  void CheckNode(const NodeUse& node) const;

 private:
  void Add(const Output& output, const char* id, const std::string& text, const std::string& other = "") const {
    findings->SetService(output.service->name);
    findings->Add(output.element, id, "outputFilePath " + Quoted(output.path) + ' ' + text, other);
    findings->SetService("");
  }
  const Output* UserOf(const std::string& place) const;
  void ComparePair(const Output& first, const Output& second) const;
  bool CheckTaken(const Output& output, const Output& victim) const;

  const std::vector<Output>& outputs;
  Directories directories;
  const Root* const root;
  Findings* const findings;
};

/// The output whose file, link or directory `place` is; null when it is nobody's.
const Output* OutputRules::UserOf(const std::string& place) const {
  const size_t slash = place.rfind('/');
  const auto neighbours = directories.find(place.substr(0, slash));
  if (neighbours != directories.end()) {
    for (const Output* output : neighbours->second) {
      if (output->Uses(place.substr(slash + 1))) {
        return output;
      }
    }
  }
  return nullptr;
}

void OutputRules::CheckPlace(const Output& output) const {
  // Of what is in /data, a device without this program has all but /data/log.
  static const std::set<std::string> kForeign = {
      "adb",          "anr",        "app",       "backup",     "bootchart",      "cache",
      "dalvik-cache", "data",       "drm",       "local",      "lost+found",     "media",
      "misc",         "nfc",        "ota",       "property",   "resource-cache", "ss",
      "system",       "system_ce",  "system_de", "tombstones", "user",           "user_de",
      "vendor",       "unencrypted"};
  const std::string& directory = output.placeDirectory;
  const std::string inData = directory.rfind("/data/", 0) == 0 ? directory.substr(6) : "";
  const std::optional<struct stat> found = root != nullptr ? root->StatusOf(output.directory + '/') : std::nullopt;
  const bool isOthers = found.has_value() && found->st_uid != 0 && found->st_uid != geteuid();
  if (directory == "/data" || directory.empty() || isOthers ||
      kForeign.count(inData.substr(0, inData.find('/'))) != 0) {
    Add(output, "output-foreign",
        "is in a directory of others: the daemon gives " + Quoted(directory.empty() ? "/" : directory) +
            " to root:system, with mode 0775; did you mean a directory in /data/log?");
  } else if ((directory + '/').rfind("/data/log/", 0) != 0) {
    Add(output, "output-place",
        inData.empty() ? "is outside /data: other partitions are read-only or small"
                       : "is outside /data/log, where the label and the policy expect logs");
  }
}

/// Looks at what stands in the way.
void OutputRules::CheckPath(const Output& output) const {
  for (size_t end = output.place.find('/', 1); end != std::string::npos; end = output.place.find('/', end + 1)) {
    const std::string directory = output.place.substr(0, end);
    const std::optional<struct stat> found = root->StatusOf(directory);
    if (found.has_value() && !S_ISDIR(found->st_mode)) {
      Add(output, "output-blocked", "needs a directory where " + Quoted(directory) + " is none: nothing is logged");
      return;
    }
  }
  const std::optional<struct stat> found = root->StatusOf(output.place);
  if (found.has_value() && S_ISDIR(found->st_mode)) {
    Add(output, "output-blocked", "is a directory; did you mean a file in it?");
  }
}

/// An output where another one has a file, below one, or in the place of a configuration.
void OutputRules::CheckNesting(const Output& output) const {
  for (std::string directory = output.placeDirectory; !directory.empty(); directory.erase(directory.rfind('/'))) {
    const Output* other = UserOf(directory);
    if (other != nullptr) {
      Add(output, "output-shared", "needs a directory where " + LineText(*other) + " has a file or its own directory",
          other->service->name);
    }
  }
  for (const std::string configuration : QuilConfig::kCandidates) {
    if (UserOf(configuration) == &output) {
      Add(output, "output-node", "takes the place of the configuration " + Quoted(configuration));
    }
  }
}

/// Only outputs in one directory meet.
void OutputRules::ComparePairs() const {
  for (const auto& [directory, neighbours] : directories) {
    for (size_t i = 1; i < neighbours.size(); ++i) {
      for (size_t k = 0; k < i && findings->All().size() < kMostFindings; ++k) {
        ComparePair(*neighbours[k], *neighbours[i]);
      }
    }
  }
}

void OutputRules::ComparePair(const Output& first, const Output& second) const {
  if (first.place == second.place) {
    Add(second, "output-shared",
        "is that of line " + std::to_string(LineOf(first.element)) + ": two groups write into one log",
        first.service->name);
    return;
  }
  const bool isTaken = CheckTaken(first, second);
  if (!CheckTaken(second, first) && !isTaken && first.Uses(second.base)) {
    Add(second, "output-shared", "has a name that " + LineText(first) + " gives to files of its own",
        first.service->name);
  }
}

bool OutputRules::CheckTaken(const Output& output, const Output& victim) const {
  const std::string file = TakenFile(output, victim);
  if (!file.empty()) {
    Add(output, "output-shared",
        "has a clean-up that takes " + Quoted(file) + ", a file of " + LineText(victim) +
            "; did you mean a directory for each?",
        victim.service->name);
  }
  return !file.empty();
}

void OutputRules::CheckNode(const NodeUse& node) const {
  const Output* output = UserOf(node.place);
  if (output != nullptr) {
    findings->SetService(node.service->name);
    findings->Add(node.element, "output-node",
                  NameOf(node.element) + ' ' + Quoted(node.path) + " is a file of " + LineText(*output) +
                      ": the log takes the place of the node, and feeds itself or gives nothing",
                  output->service->name);
    findings->SetService("");
  }
}

bool NamesFile(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  return !name.empty() && name != "." && name != "..";
}

}  // namespace

bool HasUsableOutput(const GroupReading& group) {
  const std::string path = group.Output();
  return !path.empty() && path.front() == '/' && NamesFile(path);
}

void CheckOutputs(const std::vector<ServiceReading>& services, const std::vector<NodeUse>& nodes, const Root* root,
                  Findings* findings) {
  std::vector<Output> outputs;
  for (const ServiceReading& service : services) {
    for (const GroupReading& group : service.groups) {
      if (HasUsableOutput(group)) {
        outputs.emplace_back(service, group, root);
      }
    }
  }
  const OutputRules rules(outputs, root, findings);
  for (const Output& output : outputs) {
    rules.CheckPlace(output);
    rules.CheckNesting(output);
    if (root != nullptr) {
      rules.CheckPath(output);
    }
  }
  rules.ComparePairs();
  for (const NodeUse& node : nodes) {
    rules.CheckNode(node);
  }
}

}  // namespace Quilcheck
