// Which services init starts.

#include <set>
#include <sstream>

#include "quilcheck/document.h"
#include "quilcheck/rules.h"

namespace Quilcheck {

namespace {

/// The NAME of `service ... /system/bin/quilcat -b NAME`; empty for any other line.
std::string StartedBy(const std::string& line) {
  const std::vector<std::string> words = Words(line);
  for (size_t i = 2; i + 2 < words.size() && words[0] == "service"; ++i) {
    if (words[i].substr(words[i].rfind('/') + 1) == "quilcat" && words[i + 1] == "-b") {
      return words[i + 2];
    }
  }
  return "";
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
  std::istringstream lines(text);
  int number = 0;
  for (std::string line, more; std::getline(lines, line);) {
    const int first = ++number;
    for (; !line.empty() && line.back() == '\\' && std::getline(lines, more); ++number) {
      line.replace(line.size() - 1, 1, more);
    }
    const std::string name = StartedBy(line);
    started.insert(name);
    if (!name.empty() && known.count(name) == 0) {
      findings->Add(top, "init-unknown",
                    file + ':' + std::to_string(first) + " starts " + Quoted(name) + ", which is not in this file",
                    HintAmong({known.begin(), known.end()}, name));
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
