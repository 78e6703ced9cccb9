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
void ReadServices(Report* report) {
  std::set<std::string> names;
  for (xmlNode* node = report->document.Root()->children; node != nullptr; node = node->next) {
    if (!IsElement(node, "quilcat")) {
      continue;
    }
    const std::string name = AttributeOf(node, "name").value_or("");
    if (name.empty()) {
      continue;
    }
    if (names.insert(name).second) {
      report->services.push_back(ReadService(report->document.get(), node, name));
      continue;
    }
    report->findings.SetService(name);
    report->findings.Error(LineOf(node), "service " + Quoted(name) + " again: the daemon reads the first one only");
    report->findings.SetService("");
  }
}

void CheckRoot(Report* report) {
  const xmlNode* root = report->document.Root();
  if (!IsElement(root, kUsualRoot)) {
    report->findings.Warning(LineOf(root), "the root element is called " + Quoted(NameOf(root)) +
                                               ": the daemon takes any name, the schema knows quilcatConfigs only");
  }
  if (report->services.empty()) {
    const bool isService = IsElement(root, "quilcat");
    report->findings.Error(LineOf(root), std::string("no service in this file: every process that needs it idles") +
                                             (isService ? "; did you mean <quilcatConfigs> around <quilcat>?" : ""));
  }
}

void CheckBuiltIn(Report* report) {
  for (const char* name : QuilConfig::kBuiltInServices) {
    const bool found = std::any_of(report->services.begin(), report->services.end(),
                                   [name](const ServiceReading& service) { return service.name == name; });
    if (!found) {
      report->findings.Warning(
          LineOf(report->document.Root()),
          std::string("no service ") + name + " in this file: with a file the built-in one is gone, its process idles");
    }
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
  report->findings.KeepService(name);
  if (report->services.empty() && !names.empty()) {
    report->findings.Error(LineOf(report->document.Root()),
                           "no service " + Quoted(name) + " in this file: its process idles" + HintAmong(names, name));
  }
}

void CheckAll(const Root* root, bool allServices, Report* report) {
  CheckStructure(report->document.Root(), kRoot, &report->findings);
  ReadServices(report);
  CheckRoot(report);
  if (allServices) {
    CheckBuiltIn(report);
  }
  for (const ServiceReading& service : report->services) {
    report->findings.SetService(service.name);
    CheckService(service, &report->findings);
    if (root != nullptr) {
      CheckPaths(service, *root, &report->findings);
    }
    report->findings.SetService("");
  }
  CheckStreams(report->services, &report->findings);
  CheckOutputs(report->services, &report->findings);
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
  AssumeProperties(request.properties);
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
    CheckAll(request.root.empty() ? nullptr : &root, request.service.empty(), report);
    if (!request.service.empty()) {
      KeepService(request.service, report);
    }
  }
  report->findings.Sort();
  return true;
}

}  // namespace Quilcheck
