// Checks that need the files of the device: do nodes exist, can outputs be made.

#include "quilcheck/document.h"
#include "quilcheck/rules.h"

using namespace QuilCommon;

namespace Quilcheck {

namespace {

void CheckNode(const xmlNode* element, const char* path, const Root& root, bool streams, Findings* findings) {
  if (path == nullptr || *path != '/') {
    return;
  }
  const int line = LineOf(element);
  const std::optional<struct stat> found = root.StatusOf(path);
  const std::string what = NameOf(element) + ' ' + Quoted(path);
  if (!found.has_value()) {
    findings->Warning(line, what + " does not exist: " + (streams ? "the log stays empty" : "it cannot be read"));
  } else if (S_ISDIR(found->st_mode)) {
    findings->Warning(line, what + " is a directory: it cannot be read");
  } else if (streams && S_ISREG(found->st_mode) && NormalPath(path).rfind("/proc/", 0) != 0 &&
             NormalPath(path).rfind("/sys/", 0) != 0) {
    findings->Warning(line, what + " is a regular file: streamed, it is read again and again without a pause");
  }
}

/// The daemon reads the first alternative that exists, of whatever kind it is.
void CheckAlternatives(const NodeSetReading& set, const Root& root, Findings* findings) {
  // Each alterdataPath element made one entry of the list.
  std::vector<std::pair<const xmlNode*, const char*>> missing;
  const xmlNode* element = set.element->children;
  for (const QuilcatStrList_t* path = set.record->alter_data_path; path != nullptr; path = path->next) {
    while (!IsElement(element, "alterdataPath")) {
      element = element->next;
    }
    if (path->str != nullptr && root.StatusOf(path->str).has_value()) {
      CheckNode(element, path->str, root, false, findings);
      return;
    }
    missing.emplace_back(element, path->str);
    element = element->next;
  }
  for (const auto& [where, path] : missing) {
    CheckNode(where, path, root, false, findings);
  }
}

void CheckNodeSet(const NodeSetReading& set, const Root& root, bool streams, Findings* findings) {
  if (set.record->data_path != nullptr) {
    CheckNode(ChildOf(set.element, "dataPath"), set.record->data_path, root, streams, findings);
  } else {
    CheckAlternatives(set, root, findings);
  }
  if (set.record->title == nullptr && set.record->title_path != nullptr) {
    CheckNode(ChildOf(set.element, "titlePath"), set.record->title_path, root, false, findings);
  }
}

void CheckOutputPath(const GroupReading& group, const Root& root, Findings* findings) {
  const std::string path = NormalPath(group.Output());
  const int line = LineOf(group.output);
  for (size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
    const std::string directory = path.substr(0, end);
    const std::optional<struct stat> found = root.StatusOf(directory);
    if (found.has_value() && !S_ISDIR(found->st_mode)) {
      findings->Warning(
          line, "outputFilePath " + Quoted(path) + ": " + Quoted(directory) + " is not a directory: nothing is logged");
      return;
    }
  }
  const std::optional<struct stat> found = root.StatusOf(path);
  if (found.has_value() && S_ISDIR(found->st_mode)) {
    findings->Warning(line, "outputFilePath " + Quoted(path) + " is a directory; did you mean a file in it?");
  }
}

}  // namespace

std::string NormalPath(const std::string& path) {
  std::string normal;
  for (size_t start = 0; start < path.size();) {
    const size_t end = std::min(path.find('/', start), path.size());
    const std::string step = path.substr(start, end - start);
    if (step == "..") {
      normal.erase(std::min(normal.rfind('/'), normal.size()));
    } else if (!step.empty() && step != ".") {
      normal += '/' + step;
    }
    start = end + 1;
  }
  return normal;
}

bool NamesFile(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  return !name.empty() && name != "." && name != "..";
}

bool HasUsableOutput(const GroupReading& group) {
  const std::string path = group.Output();
  return !path.empty() && path.front() == '/' && NamesFile(path);
}

void CheckPaths(const ServiceReading& service, const Root& root, Findings* findings) {
  for (const GroupReading& group : service.groups) {
    if (HasUsableOutput(group)) {
      CheckOutputPath(group, root, findings);
    }
    for (const NodeSetReading& set : group.nodeSets) {
      CheckNodeSet(set, root, group.Streams(), findings);
    }
  }
}

}  // namespace Quilcheck
