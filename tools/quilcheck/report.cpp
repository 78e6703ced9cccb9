#include "quilcheck/report.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <set>

#include "config/quil_config.h"
#include "quilcheck/grammar.h"
#include "quilcheck/root.h"
#include "quilcheck/rules.h"

namespace Quilcheck {

namespace {

/// Reads every service with the daemon's reader, which takes the first of several elements with the same name.
void ReadServices(const Properties& properties, Report* report) {
  std::set<std::string> names;
  for (xmlNode* node = report->document.Root()->children; node != nullptr; node = node->next) {
    const std::string name = IsElement(node, "quilcat") ? AttributeOf(node, "name").value_or("") : "";
    if (!name.empty() && names.insert(name).second) {
      report->services.push_back(ReadService(node, name, properties));
    } else if (!name.empty()) {
      report->findings.SetService(name);
      report->findings.Add(node, "service-again", "service " + Quoted(name) + " again");
      report->findings.SetService("");
    }
  }
}

void CheckRoot(bool allServices, Report* report) {
  const xmlNode* root = report->document.Root();
  if (!IsElement(root, kUsualRoot)) {
    report->findings.Add(root, "root-name", "the root element is called " + Quoted(NameOf(root)));
  }
  if (report->services.empty()) {
    const bool isService = IsElement(root, "quilcat");
    report->findings.Add(root, "service-missing",
                         std::string("no service in this file: every process that needs it idles") +
                             (isService ? "; did you mean <quilcatConfigs> around <quilcat>?" : ""));
  }
  for (const char* name : QuilConfig::kBuiltInServices) {
    if (allServices && std::none_of(report->services.begin(), report->services.end(),
                                    [name](const ServiceReading& service) { return service.name == name; })) {
      report->findings.Add(root, "built-in-gone", std::string("no service ") + name + " in this file");
    }
  }
}

/// Compares what all outputs take together with the disk that there is.
void CheckDisk(unsigned long long kilobytes, Report* report) {
  const unsigned long long total = TotalKilobytes(*report);
  if (kilobytes != 0 && (total == 0 || total > kilobytes)) {
    report->findings.Add(report->document.Root(), "disk",
                         "all outputs together may take " + (total == 0 ? "any size" : SizeText(total)) +
                             ", more than the " + SizeText(kilobytes) + " that there are for them");
  }
}

/// Narrows the report to one service; it is an error when there is none of that name.
void KeepService(const std::string& name, Report* report) {
  std::vector<std::string> names;
  std::vector<ServiceReading> kept;
  for (ServiceReading& service : report->services) {
    names.push_back(service.name);
    if (service.name == name) {
      kept.push_back(std::move(service));
    }
  }
  report->services = std::move(kept);
  if (report->services.empty() && !names.empty()) {
    report->findings.Add(report->document.Root(), "service-missing",
                         "no service " + Quoted(name) + " in this file: its process idles" + HintAmong(names, name));
  }
}

bool CheckAll(const Request& request, const Root* root, Report* report, std::string* reason) {
  CheckStructure(report->document.Root(), ConfigGrammar::kRoot, &report->findings);
  ReadServices(request.properties, report);
  CheckRoot(request.service.empty(), report);
  for (const ServiceReading& service : report->services) {
    report->findings.SetService(service.name);
    CheckService(service, &report->findings);
  }
  report->findings.SetService("");
  const std::vector<NodeUse> nodes = NodesOf(report->services, root);
  CheckNodes(nodes, root, &report->findings);
  CheckOutputs(report->services, nodes, root, &report->findings);
  CheckDisk(request.diskKilobytes, report);
  if (!request.initFile.empty() &&
      !CheckInit(request.initFile, report->services, report->document.Root(), &report->findings, reason)) {
    *reason = request.initFile + ": " + *reason;
    return false;
  }
  report->findings.TakeOutAllowed(report->document.get());
  return true;
}

/// The configuration file that a device with this root directory takes; empty when it has none.
std::string FindFile(const Root& root) {
  for (const char* path : QuilConfig::kCandidates) {
    std::string file = root.Outside(path);
    if (!file.empty()) {
      return file;
    }
  }
  return "";
}

}  // namespace

bool Check(const Request& request, Report* report, std::string* reason) {
  const Root root(request.root.empty() ? "/" : request.root);
  if (!root.IsOpen()) {
    *reason = request.root + ": " + strerror(errno);
    return false;
  }
  report->file = request.file.empty() ? FindFile(root) : request.file;
  if (report->file.empty()) {
    *reason = "there is no configuration file: the daemon has its built-in services";
    return false;
  }
  if (!report->document.Load(report->file, &report->findings, reason)) {
    *reason = report->file + ": " + *reason;
    return false;
  }
  if (report->document.Root() != nullptr) {
    if (!CheckAll(request, request.root.empty() ? nullptr : &root, report, reason)) {
      return false;
    }
    if (!request.service.empty()) {
      KeepService(request.service, report);
    }
  }
  report->findings.Narrow(request.service, request.notes);
  report->findings.Sort();
  return true;
}

}  // namespace Quilcheck
