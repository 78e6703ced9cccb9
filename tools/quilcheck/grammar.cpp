#include "quilcheck/grammar.h"

#include <ctype.h>
#include <string.h>

#include <algorithm>
#include <numeric>

namespace Quilcheck {

namespace {

constexpr AttributeRule kEnd{nullptr, Kind::Text, false, nullptr};

constexpr AttributeRule Value(Kind kind, const char* keywords = nullptr) {
  return {"value", kind, true, keywords};
}

constexpr ElementRule kRules[] = {
    {kRoot, "quilcat", Repeat::All, {{"name", Kind::Name, true, nullptr}, kEnd}},
    {"quilcat", "logRotateSizeKBytes", Repeat::Last, {Value(Kind::Kilobytes), kEnd}},
    {"quilcat", "maxCompressdFiles", Repeat::Last, {Value(Kind::Number), kEnd}},
    {"quilcat", "cpuSets", Repeat::Last, {Value(Kind::Keyword, "little big"), kEnd}},
    {"quilcat", "writeMode", Repeat::Last, {Value(Kind::Keyword, "mmap factory"), kEnd}},
    {"quilcat", "syncSeconds", Repeat::Last, {Value(Kind::Seconds), kEnd}},
    {"quilcat", "emptyFiles", Repeat::Last, {Value(Kind::Keyword, "remove"), kEnd}},
    {"quilcat", "quilcatGroup", Repeat::All, {kEnd}},
    {"quilcatGroup",
     "logStyle",
     Repeat::Last,
     {{"value", Kind::Keyword, false, "monitor_node monitor_dir poll_node poll_cmd"},
      {"interval", Kind::Seconds, false, nullptr},
      {"failureRetry", Kind::Number, false, nullptr},
      {"onWriteFailure", Kind::Keyword, false, "retry"},
      kEnd}},
    {"quilcatGroup", "outputFilePath", Repeat::Last, {Value(Kind::Output), kEnd}},
    {"quilcatGroup", "inputNodeSet", Repeat::All, {kEnd}},
    {"quilcatGroup", "inputDirSet", Repeat::All, {kEnd}},
    {"quilcatGroup", "inputCmdSet", Repeat::All, {kEnd}},
    {"inputNodeSet", "dataPath", Repeat::First, {Value(Kind::Column), kEnd}},
    {"inputNodeSet", "titlePath", Repeat::First, {Value(Kind::Node), kEnd}},
    {"inputNodeSet", "title", Repeat::First, {Value(Kind::Text), kEnd}},
    {"inputNodeSet", "alterdataPath", Repeat::All, {Value(Kind::Node), kEnd}},
    {"inputNodeSet", "width", Repeat::First, {Value(Kind::Number), kEnd}},
    {"inputDirSet", "inputDirPath", Repeat::First, {Value(Kind::Directory), kEnd}},
    {"inputDirSet", "pickNode", Repeat::All, {Value(Kind::Text), kEnd}},
    {"inputCmdSet", "command", Repeat::First, {Value(Kind::Text), kEnd}},
};

constexpr size_t kLongestName = 40;

char Lower(char letter) {
  return static_cast<char>(tolower(static_cast<unsigned char>(letter)));
}

/// The number of letters to insert, delete and exchange (Levenshtein's distance), ignoring case.
size_t Distance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t k = 1; k <= b.size(); ++k) {
      const size_t exchanged = diagonal + (Lower(a[i - 1]) == Lower(b[k - 1]) ? 0 : 1);
      diagonal = row[k];
      row[k] = std::min({exchanged, row[k] + 1, row[k - 1] + 1});
    }
  }
  return row[b.size()];
}

std::vector<std::string> AttributesOf(const ElementRule& element) {
  std::vector<std::string> names;
  for (const AttributeRule* attribute = element.attributes; attribute->name != nullptr; ++attribute) {
    names.emplace_back(attribute->name);
  }
  return names;
}

std::string ParentText(const ElementRule& rule) {
  return *rule.parent != '\0' ? rule.parent : "the root element";
}

}  // namespace

const ElementRule* FindRule(const std::string& parent, const std::string& name) {
  const auto* rule = std::find_if(std::begin(kRules), std::end(kRules), [&](const ElementRule& candidate) {
    return parent == candidate.parent && name == candidate.name;
  });
  return rule != std::end(kRules) ? rule : nullptr;
}

const AttributeRule* FindAttribute(const ElementRule& element, const std::string& name) {
  for (const AttributeRule* attribute = element.attributes; attribute->name != nullptr; ++attribute) {
    if (name == attribute->name) {
      return attribute;
    }
  }
  return nullptr;
}

std::string HintAmong(const std::vector<std::string>& names, const std::string& text) {
  if (text.size() > kLongestName) {
    return "";
  }
  const std::string* closest = nullptr;
  size_t least = std::max(size_t{1}, text.size() / 3) + 1;
  for (const std::string& name : names) {
    const size_t distance = Distance(name, text);
    if (distance < least) {
      least = distance;
      closest = &name;
    }
  }
  if (closest == nullptr) {
    return "";
  }
  const bool hasBlank = closest->find(' ') != std::string::npos;
  return "; did you mean " + (hasBlank ? '"' + *closest + '"' : *closest) + '?';
}

std::string HintForElement(const std::string& parent, const std::string& name) {
  std::vector<std::string> here, elsewhere;
  for (const ElementRule& rule : kRules) {
    if (name == rule.name) {
      return "; it belongs in " + ParentText(rule);
    }
    if (FindAttribute(rule, name) != nullptr && name != "value" && name != "name") {
      return std::string("; it is an attribute of ") + rule.name;
    }
    (parent == rule.parent ? here : elsewhere).emplace_back(rule.name);
  }
  const std::string hint = HintAmong(here, name);
  return !hint.empty() ? hint : HintAmong(elsewhere, name);
}

std::string HintForAttribute(const ElementRule& element, const std::string& name) {
  for (const ElementRule& rule : kRules) {
    if (FindAttribute(rule, name) != nullptr && name != "value" && name != "name") {
      return std::string("; it belongs to ") + rule.name;
    }
    if (name == rule.name && strcmp(rule.parent, element.name) == 0) {
      return "; it is an element in " + ParentText(rule);
    }
  }
  const std::vector<std::string> own = AttributesOf(element);
  const std::string hint = HintAmong(own, name);
  return hint.empty() && own.size() == 1 ? "; its one attribute is " + own.front() : hint;
}

std::vector<std::string> Words(const char* text) {
  std::vector<std::string> words;
  while (*text != '\0') {
    const size_t length = strcspn(text, " ");
    words.emplace_back(text, length);
    text += length + (text[length] == ' ' ? 1 : 0);
  }
  return words;
}

}  // namespace Quilcheck
