#include "quilcheck/findings.h"

#include <algorithm>
#include <sstream>

#include "quilcheck/document.h"

namespace Quilcheck {

namespace {

constexpr char kPage[] =
#include "quilcheck_page.inc"
    ;

constexpr const char* kSeverities[] = {"note", "warning", "error"};

// | `title-waits` | error | what the daemon does | What it is, and what to do. |
std::map<std::string, Rule> ReadRules() {
  std::map<std::string, Rule> rules;
  std::istringstream page(kPage);
  for (std::string line; std::getline(page, line);) {
    std::istringstream row(line);
    std::string cells[5];
    for (std::string& cell : cells) {
      std::getline(row, cell, '|');
      cell.erase(0, cell.find_first_not_of(' '));
      cell.erase(cell.find_last_not_of(' ') + 1);
    }
    const auto* level = std::find(std::begin(kSeverities), std::end(kSeverities), cells[2]);
    if (level != std::end(kSeverities) && cells[1].size() > 2) {
      const auto severity = static_cast<Severity>(level - kSeverities);
      rules[cells[1].substr(1, cells[1].size() - 2)] = {severity, cells[3], cells[4]};
    }
  }
  return rules;
}

}  // namespace

const std::map<std::string, Rule>& Rules() {
  static const std::map<std::string, Rule> rules = ReadRules();
  return rules;
}

const char* NameOf(Severity severity) {
  return kSeverities[static_cast<size_t>(severity)];
}

void Findings::Add(const xmlNode* element, const char* id, const std::string& what, const std::string& hint,
                   const std::string& otherService) {
  const Rule& rule = Rules().at(id);
  const std::string text = what + (rule.consequence.empty() ? "" : ": ") + rule.consequence + hint;
  list.push_back({element, LineOf(element), id, rule.severity, text, service, otherService});
}

void Findings::AddOfParser(int line, bool isFatal, std::string text) {
  list.push_back({nullptr, line, "xml", isFatal ? Severity::Error : Severity::Warning, std::move(text), "", ""});
}

template <typename Test>
bool Findings::TakeOut(Test test) {
  const auto rest = std::remove_if(list.begin(), list.end(), test);
  const bool isAny = rest != list.end();
  list.erase(rest, list.end());
  return isAny;
}

// <!-- quilcheck: allow title-waits: the reason -->
void Findings::Allow(const xmlNode* comment) {
  std::istringstream words(reinterpret_cast<const char*>(comment->content));
  std::string tool, allow, id, reason;
  if (!(words >> tool >> allow >> id) || tool != "quilcheck:" || allow != "allow") {
    return;
  }
  const xmlNode* element = comment->next;
  while (element != nullptr && element->type != XML_ELEMENT_NODE) {
    element = element->next;
  }
  const bool hasReason = id.back() == ':' && words >> reason;
  id.erase(id.find_last_not_of(':') + 1);
  const bool isUsed = hasReason && element != nullptr && TakeOut([&id, element](const Finding& finding) {
                        return finding.id == id && IsInside(finding.element, element);
                      });
  const auto rule = Rules().find(id);
  const bool isForOtherRun = rule != Rules().end() && rule->second.text.rfind("With `-", 0) == 0;
  if (!isUsed && !(hasReason && isForOtherRun)) {
    Add(comment, "allow-unused",
        "the comment allows " + Quoted(id) +
            (rule == Rules().end() ? ", which is no id, and takes one at a time"
             : hasReason           ? ", which was not found in the element after it"
                                   : " without a reason, so it allows nothing"));
  }
}

void Findings::TakeOutAllowed(xmlDoc* document) {
  for (xmlNode* node = document->children; node != nullptr; node = NextOf(node)) {
    if (node->type == XML_COMMENT_NODE) {
      Allow(node);
    }
  }
}

void Findings::Narrow(const std::string& name, bool withNotes) {
  TakeOut([&name, withNotes](const Finding& finding) {
    const bool isOthers = !finding.service.empty() && finding.service != name && finding.otherService != name;
    return (isOthers && !name.empty()) || (finding.severity == Severity::Note && !withNotes);
  });
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
