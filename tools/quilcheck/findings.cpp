#include "quilcheck/findings.h"

#include <algorithm>

namespace Quilcheck {

void Findings::Add(int line, Severity severity, std::string text) {
  list.push_back({line, severity, std::move(text), service, ""});
}

void Findings::KeepService(const std::string& name) {
  const auto isOther = [&name](const Finding& finding) {
    return !finding.service.empty() && finding.service != name && finding.otherService != name;
  };
  list.erase(std::remove_if(list.begin(), list.end(), isOther), list.end());
}

void Findings::Sort() {
  std::stable_sort(list.begin(), list.end(), [](const Finding& a, const Finding& b) { return a.line < b.line; });
}

int Findings::Count(Severity severity) const {
  return static_cast<int>(std::count_if(list.begin(), list.end(),
                                        [severity](const Finding& finding) { return finding.severity == severity; }));
}

std::string Quoted(const std::string& text) {
  constexpr size_t kMost = 80;
  return '"' + (text.size() > kMost ? text.substr(0, kMost) + "..." : text) + '"';
}

}  // namespace Quilcheck
