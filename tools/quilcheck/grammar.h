#ifndef QUILCAT_TOOLS_QUILCHECK_GRAMMAR_H_
#define QUILCAT_TOOLS_QUILCHECK_GRAMMAR_H_

#include <string>
#include <vector>

namespace Quilcheck {

/// What the text of an attribute means.
enum class Kind {
  Name,       ///< of a service
  Number,     ///< a whole number from 0 to INT_MAX
  Kilobytes,  ///< a Number of KiB
  Seconds,    ///< a Number of seconds
  Keyword,
  Output,     ///< path of a log
  Node,       ///< path of a node
  Column,     ///< path of a node, or a word for the time
  Directory,  ///< path of a directory
  Text,
};

/// Which of several elements with the same name and parent has an effect.
enum class Repeat { All, First, Last };

struct AttributeRule {
  const char* name;  ///< null after the last attribute
  Kind kind;
  bool required;
  const char* keywords;  ///< separated by blanks
};

struct ElementRule {
  const char* parent;
  const char* name;
  Repeat repeat;
  AttributeRule attributes[5];
};

/// The name of the root element in the rules; in a file it may have any name.
constexpr char kRoot[] = "";
/// What the root element is called in the sample and in the schema.
constexpr char kUsualRoot[] = "quilcatConfigs";

/// The rule of element `name` below `parent`; null when it does not belong there.
const ElementRule* FindRule(const std::string& parent, const std::string& name);
/// The rule of attribute `name`; null when the element has none.
const AttributeRule* FindAttribute(const ElementRule& element, const std::string& name);

/// Says where element `name`, which does not belong below `parent`, would belong, or what it was probably meant to be:
/// "; it belongs in quilcatGroup", "; did you mean title?"; empty when nothing is close.
std::string HintForElement(const std::string& parent, const std::string& name);
/// The same for an attribute that `element` does not have.
std::string HintForAttribute(const ElementRule& element, const std::string& name);
/// "; did you mean NAME?" with the name of `names` that is closest to `text`; empty when none is close.
std::string HintAmong(const std::vector<std::string>& names, const std::string& text);

/// The words of a text that are separated by blanks.
std::vector<std::string> Words(const char* text);

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_GRAMMAR_H_
