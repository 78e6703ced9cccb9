// Which services init starts.

#include <algorithm>
#include <set>
#include <sstream>

#include "quilcheck/document.h"
#include "quilcheck/rules.h"

namespace Quilcheck {

namespace {

/// A service of init that runs the daemon.
struct InitService {
  std::string name;     ///< init's own
  std::string service;  ///< the daemon's
  int line = 0;
  bool isDisabled = false;  ///< its class does not start it
};

/// The NAME of `service ... /system/bin/quilcat -b NAME`; empty for any other line.
std::string StartedBy(const std::vector<std::string>& words) {
  for (size_t i = 2; i + 2 < words.size() && words[0] == "service"; ++i) {
    if (words[i].substr(words[i].rfind('/') + 1) == "quilcat" && words[i + 1] == "-b") {
      return words[i + 2];
    }
  }
  return "";
}

/// Those that init starts: by their class, or by a `start` in an action.
std::vector<InitService> ServicesOf(const std::string& text) {
  std::vector<InitService> found;
  std::set<std::string> asked;
  std::istringstream lines(text);
  int number = 0;
  bool isInService = false;
  for (std::string line, more; std::getline(lines, line);) {
    const int first = ++number;
    for (; !line.empty() && line.back() == '\\' && std::getline(lines, more); ++number) {
      line.replace(line.size() - 1, 1, more);
    }
    const std::vector<std::string> words = Words(line);
    if (words.empty()) {
      continue;
    }
    if (const std::string service = StartedBy(words); !service.empty()) {
      found.push_back({words[1], service, first});
      isInService = true;
    } else if (words[0] == "service" || words[0] == "on") {
      isInService = false;
    } else if (words[0] == "disabled" && isInService) {
      found.back().isDisabled = true;
    } else if (words[0] == "start" && words.size() > 1) {
      asked.insert(words[1]);
    }
  }
  found.erase(std::remove_if(found.begin(), found.end(),
                             [&](const InitService& one) { return one.isDisabled && asked.count(one.name) == 0; }),
              found.end());
  return found;
}

}  // namespace

bool CheckInit(const std::string& file, const std::vector<ServiceReading>& services, const xmlNode* top,
               Findings* findings, std::string* reason) {
  std::string text;
  if (!ReadPath(file, &text, reason)) {
    return false;
  }
  std::set<std::string> known, started;
  for (const ServiceReading& service : services) {
    known.insert(service.name);
  }
  for (const InitService& init : ServicesOf(text)) {
    started.insert(init.service);
    if (known.count(init.service) == 0) {
      findings->Add(
          top, "init-unknown",
          file + ':' + std::to_string(init.line) + " starts " + Quoted(init.service) + ", which is not in this file",
          HintAmong({known.begin(), known.end()}, init.service));
    }
  }
  for (const ServiceReading& service : services) {
    if (started.count(service.name) == 0) {
      findings->SetService(service.name);
      findings->Add(service.element, "init-missing", "no service of " + file + " starts " + Quoted(service.name));
    }
  }
  findings->SetService("");
  return true;
}

}  // namespace Quilcheck
