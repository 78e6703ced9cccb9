#include "quilcheck/grammar.h"

#include <ctype.h>
#include <string.h>

#include <algorithm>
#include <numeric>
#include <sstream>

using namespace ConfigGrammar;

namespace Quilcheck {

namespace {

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

std::string ParentText(const Element& element) {
  return *element.parent != '\0' ? element.parent : "the root element";
}

/// The element that has an attribute `name`; null for the names that many have.
const Element* OwnerOf(const std::string& name) {
  for (const Element* element = kElements; element->name != nullptr && name != "value" && name != "name"; ++element) {
    if (FindAttribute(*element, name) != nullptr) {
      return element;
    }
  }
  return nullptr;
}

}  // namespace

const Attribute* FindAttribute(const Element& element, const std::string& name) {
  const Attribute* attribute = element.attributes;
  while (attribute->name != nullptr && name != attribute->name) {
    ++attribute;
  }
  return attribute->name != nullptr ? attribute : nullptr;
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
  for (const Element* element = kElements; element->name != nullptr; ++element) {
    if (name == element->name) {
      return "; it belongs in " + ParentText(*element);
    }
    (parent == element->parent ? here : elsewhere).emplace_back(element->name);
  }
  if (const Element* owner = OwnerOf(name); owner != nullptr) {
    return std::string("; it is an attribute of ") + owner->name;
  }
  const std::string hint = HintAmong(here, name);
  return !hint.empty() ? hint : HintAmong(elsewhere, name);
}

std::string HintForAttribute(const Element& element, const std::string& name) {
  if (const Element* owner = OwnerOf(name); owner != nullptr) {
    return std::string("; it belongs to ") + owner->name;
  }
  if (Find(element.name, name.c_str()) != nullptr) {
    return std::string("; it is an element in ") + element.name;
  }
  std::vector<std::string> own;
  for (const Attribute* attribute = element.attributes; attribute->name != nullptr; ++attribute) {
    own.emplace_back(attribute->name);
  }
  const std::string hint = HintAmong(own, name);
  return hint.empty() && own.size() == 1 ? "; its one attribute is " + own.front() : hint;
}

std::vector<std::string> Words(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  return words;
}

std::string WhichCounts(const Element& element) {
  const Kind kind = element.attributes[0].kind;
  switch (element.repeat) {
    case Repeat::Adds:
      return "each counts";
    case Repeat::Replaces:
      return kind == Kind::Style ? "of each attribute the last one counts" : "the last one counts";
    case Repeat::FillsUp:
      return kind == Kind::Number ? "the first above 0 counts" : "the first with a value counts";
    case Repeat::IsPassedOver:
      return "the first one counts";
  }
  return "";
}

}  // namespace Quilcheck
