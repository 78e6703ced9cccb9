// What outputs do to each other.

#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>

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

  /// Whether `name` of its directory is that of a file, link or directory of its own, now or at some time. Whatever
  /// stands there is removed or replaced.
  bool Uses(const std::string& name) const {
    if (mapped) {
      return name == base || name == FileNames::previousLink(base) || FileNames::parseIndexed(name).output == base;
    }
    return name == base || FileNames::outputOfRotated(name) == base ||
           FileNames::outputOfPackingDirectory(name) == base ||
           (FileNames::outputOfArchive(name) == base && atoi(name.c_str() + base.size() + 1) < archives);
  }

  /// Whether it takes a file `name` of its directory: by a file or link of its own, or in its clean-up. That takes what
  /// has its base name and ".gz" anywhere in the path, in factory mode only at the length of an indexed name; in mmap
  /// mode what factory mode may have left, too.
  bool Takes(const std::string& name, bool isLink) const {
    const std::vector<std::string> old = FileNames::oldStyle(base);
    const bool hasBase = directoryHasBase || name.find(base) != std::string::npos;
    const bool hasGz = directoryHasGz || name.find(FileNames::kGzip) != std::string::npos;
    const bool isIndexed = name.size() == base.size() + FileNames::kSuffixLength;
    return Uses(name) || (mapped && std::find(old.begin(), old.end(), name) != old.end()) ||
           (hasBase && hasGz && !isLink && (mapped || isIndexed));
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
  bool directoryHasBase;
  bool directoryHasGz;
};

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
  void Add(const Output& output, const char* id, const std::string& text, const char* hint = "",
           const Output* other = nullptr) const {
    findings->SetService(output.service->name);
    findings->Add(output.element, id, "outputFilePath " + Quoted(output.path) + ' ' + text, hint,
                  other != nullptr ? other->service->name : "");
    findings->SetService("");
  }
  const Output* UserOf(const std::string& place) const;
  void ComparePair(const Output& first, const Output& second) const;
  void CheckTaken(const Output& output, const Output& victim) const;

  const std::vector<Output>& outputs;
  std::map<std::string, std::vector<const Output*>> directories;
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
  // What Android has in /data.
  static const std::vector<std::string> kForeign = Words(
      "adb anr app backup bootchart cache dalvik-cache data drm local lost+found media misc nfc ota property "
      "resource-cache ss system system_ce system_de tombstones unencrypted user user_de vendor");
  const std::string directory = output.placeDirectory.empty() ? "/" : output.placeDirectory;
  const std::string inData = directory.rfind("/data/", 0) == 0 ? directory.substr(6) : "";
  const bool isForeign = std::count(kForeign.begin(), kForeign.end(), inData.substr(0, inData.find('/'))) != 0;
  const uid_t owner = root != nullptr ? root->StatusOf(directory).st_uid : 0;
  if (directory == "/" || directory == "/data" || isForeign || (owner != 0 && owner != geteuid())) {
    Add(output, "output-foreign", "is in " + Quoted(directory) + ", a directory of others",
        "; did you mean /data/log?");
  } else if ((directory + '/').rfind("/data/log/", 0) != 0) {
    Add(output, "output-place",
        inData.empty() ? "is outside /data: other partitions are read-only or small" : "is outside /data/log");
  }
}

/// Looks at what stands in the way.
void OutputRules::CheckPath(const Output& output) const {
  for (size_t end = 0; end != std::string::npos;) {
    end = output.place.find('/', end + 1);
    const std::string level = output.place.substr(0, end);
    const mode_t mode = root->StatusOf(level).st_mode;
    if (mode != 0 && S_ISDIR(mode) == (end == std::string::npos)) {
      const bool isIt = end == std::string::npos;
      Add(output, "output-blocked", isIt ? "is a directory" : "needs a directory where " + Quoted(level) + " is none",
          isIt ? "; did you mean a file in it?" : ": nothing is logged");
      return;
    }
  }
}

/// An output where another one has a file, below one, or in the place of a configuration.
void OutputRules::CheckNesting(const Output& output) const {
  for (std::string directory = output.placeDirectory; !directory.empty(); directory.erase(directory.rfind('/'))) {
    if (const Output* other = UserOf(directory); other != nullptr) {
      Add(output, "output-shared", "needs a directory where " + LineText(*other) + " has a file", "", other);
    }
  }
  for (const std::string configuration : QuilConfig::kCandidates) {
    if (UserOf(configuration) == &output) {
      Add(output, "output-node", "is in the place of the configuration");
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
    Add(second, "output-shared", "is " + LineText(first) + ", two groups write into one log", "", &first);
    return;
  }
  CheckTaken(first, second);
  CheckTaken(second, first);
}

void OutputRules::CheckTaken(const Output& output, const Output& victim) const {
  for (const auto& [name, isLink] : victim.madeNames) {
    if (output.Takes(name, isLink)) {
      const std::string file = Quoted(victim.directory + '/' + name);
      Add(output, "output-shared", "has a clean-up that takes " + file + ", a file of " + LineText(victim),
          "; did you mean a directory for each?", &victim);
      return;
    }
  }
}

void OutputRules::CheckNode(const NodeUse& node) const {
  if (const Output* output = UserOf(node.place); output != nullptr) {
    findings->SetService(node.service->name);
    findings->Add(node.element, "output-node",
                  NameOf(node.element) + ' ' + Quoted(node.path) + " is a file of " + LineText(*output), "",
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
