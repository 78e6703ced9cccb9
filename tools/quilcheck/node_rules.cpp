// What nodes do to those who read them, and who else reads or writes there.

#include <map>

#include "quilcheck/document.h"
#include "quilcheck/report.h"
#include "quilcheck/rules.h"

using namespace QuilCommon;

namespace Quilcheck {

namespace {

bool BeginsWith(const std::string& text, const std::string& prefix) {
  return text.rfind(prefix, 0) == 0;
}

/// Known to have a reader wait for text, whatever device it is.
bool IsKnownToWait(const std::string& path) {
  return path == "/proc/kmsg" || path == "/dev/kmsg" || path == "/dev/cshell_log" ||
         path.substr(path.rfind('/') + 1) == "trace_pipe";
}

bool IsKnownToEnd(const std::string& path) {
  const bool isTrace = BeginsWith(path, "/sys/kernel/debug/") || BeginsWith(path, "/sys/kernel/tracing/");
  return !IsKnownToWait(path) && (BeginsWith(path, "/proc/") || (BeginsWith(path, "/sys/") && !isTrace));
}

/// Adds a node unless it is none: a word for the time, or a path that another rule has found wrong.
void AddNode(const ServiceReading& service, const xmlNode* element, const char* path, NodeUse::Way way,
             const Root* root, std::vector<NodeUse>* nodes) {
  if (path != nullptr && *path == '/') {
    nodes->push_back({&service, element, path, root != nullptr ? root->Resolved(path) : NormalPath(path), way});
  }
}

/// The daemon reads the first alternative that exists, of whatever kind it is. Each element made one entry of the list.
void AddAlternatives(const ServiceReading& service, const NodeSetReading& set, const Root* root,
                     std::vector<NodeUse>* nodes) {
  const size_t before = nodes->size();
  const xmlNode* element = set.element->children;
  for (const QuilcatStrList_t* path = set.record->alter_data_path; path != nullptr; path = path->next) {
    while (!IsElement(element, "alterdataPath")) {
      element = element->next;
    }
    if (root != nullptr && path->str != nullptr && root->StatusOf(path->str).st_mode != 0) {
      nodes->erase(nodes->begin() + static_cast<ptrdiff_t>(before), nodes->end());
      AddNode(service, element, path->str, NodeUse::Polls, root, nodes);
      return;
    }
    AddNode(service, element, path->str, NodeUse::Polls, root, nodes);
    element = element->next;
  }
}

void AddGroup(const ServiceReading& service, const GroupReading& group, const Root* root, std::vector<NodeUse>* nodes) {
  for (const NodeSetReading& set : group.nodeSets) {
    const NodeUse::Way way = group.Streams() ? NodeUse::Streams : NodeUse::Polls;
    if (set.record->data_path != nullptr) {
      AddNode(service, ChildOf(set.element, "dataPath"), set.record->data_path, way, root, nodes);
    } else if (group.Polls()) {
      AddAlternatives(service, set, root, nodes);
    }
    if (group.Streams()) {
      return;  // it reads the first one only
    }
    if (set.record->title == nullptr) {
      AddNode(service, ChildOf(set.element, "titlePath"), set.record->title_path, NodeUse::GivesTitle, root, nodes);
    }
  }
}

void CheckNode(const NodeUse& node, const Root* root, Findings* findings) {
  const std::string what = NameOf(node.element) + ' ' + Quoted(node.path);
  const mode_t mode = root != nullptr ? root->StatusOf(node.path).st_mode : 0;
  const bool isKnown = IsKnownToWait(node.place) || IsKnownToEnd(node.place);
  const bool waits = isKnown ? IsKnownToWait(node.place) : S_ISFIFO(mode);
  const bool ends = isKnown ? IsKnownToEnd(node.place) : S_ISREG(mode);
  // An unpacked image has nothing of what the kernel gives.
  const bool isKernels = isKnown || BeginsWith(node.place, "/sys/") || BeginsWith(node.place, "/dev/");
  if (root != nullptr && mode == 0 && !(isKernels && root->StatusOf("/proc/self").st_mode == 0)) {
    findings->Add(node.element, "node-missing", what + " does not exist");
  } else if (S_ISDIR(mode) || S_ISSOCK(mode)) {
    findings->Add(node.element, "node-unreadable", what + (S_ISDIR(mode) ? " is a directory" : " is a socket"));
  } else if (waits && node.way == NodeUse::GivesTitle) {
    findings->Add(node.element, "title-waits", what + " waits for text, perhaps for ever");
  } else if (waits && node.way == NodeUse::Polls) {
    findings->Add(node.element, "poll-waits", what + " waits for more text", "; did you mean monitor_node?");
  } else if (ends && node.way == NodeUse::Streams) {
    findings->Add(node.element, "stream-ends", what + " has an end", "; did you mean poll_node?");
  }
}

}  // namespace

std::vector<NodeUse> NodesOf(const std::vector<ServiceReading>& services, const Root* root) {
  std::vector<NodeUse> nodes;
  for (const ServiceReading& service : services) {
    for (const GroupReading& group : service.groups) {
      AddGroup(service, group, root, &nodes);
    }
  }
  return nodes;
}

void CheckNodes(const std::vector<NodeUse>& nodes, const Root* root, Findings* findings) {
  std::map<std::string, const NodeUse*> streams;
  for (const NodeUse& node : nodes) {
    findings->SetService(node.service->name);
    CheckNode(node, root, findings);
    if (node.way == NodeUse::Streams) {
      const auto [first, isNew] = streams.emplace(node.place, &node);
      if (!isNew) {
        const std::string line = std::to_string(LineOf(first->second->element));
        findings->Add(node.element, "stream-shared",
                      "dataPath " + Quoted(node.path) + " is streamed in line " + line + " too", "",
                      first->second->service->name);
      }
    }
  }
  findings->SetService("");
}

}  // namespace Quilcheck
