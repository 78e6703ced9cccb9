#ifndef QUILCAT_TOOLS_QUILCHECK_GRAMMAR_H_
#define QUILCAT_TOOLS_QUILCHECK_GRAMMAR_H_

#include <string>
#include <vector>

#include "config/grammar.h"

namespace Quilcheck {

/// What the root element is called in the sample and in the schema.
constexpr char kUsualRoot[] = "quilcatConfigs";

/// The attribute of that name; null when the element has none.
const ConfigGrammar::Attribute* FindAttribute(const ConfigGrammar::Element& element, const std::string& name);

/// Says where element `name`, which does not belong below `parent`, would belong, or what it was probably meant to be:
/// "; it belongs in quilcatGroup", "; did you mean title?"; empty when nothing is close.
std::string HintForElement(const std::string& parent, const std::string& name);
/// The same for an attribute that `element` does not have.
std::string HintForAttribute(const ConfigGrammar::Element& element, const std::string& name);
/// "; did you mean NAME?" with the name of `names` that is closest to `text`; empty when none is close.
std::string HintAmong(const std::vector<std::string>& names, const std::string& text);

/// The words of a text that are separated by blanks.
std::vector<std::string> Words(const std::string& text);

/// Which of several such elements has an effect: "the last one counts".
std::string WhichCounts(const ConfigGrammar::Element& element);

/// The grammar as the table of docs/configuration.md, and as an XML Schema 1.0 for editors.
std::string ElementTable();
std::string Schema();

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_GRAMMAR_H_
