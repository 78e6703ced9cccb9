// Checks of single elements: whether they belong in their parent, with these attributes and values.

#include <ctype.h>
#include <libxml/tree.h>

#include <algorithm>
#include <map>

#include "quilcheck/document.h"
#include "quilcheck/rules.h"

namespace Quilcheck {

namespace {

constexpr char kSchemaInstance[] = "http://www.w3.org/2001/XMLSchema-instance";

/// The declaration that names the schema, for editors.
bool IsSchemaInstance(const xmlNs* space) {
  return space != nullptr && space->href != nullptr &&
         xmlStrcmp(space->href, reinterpret_cast<const xmlChar*>(kSchemaInstance)) == 0;
}

bool NamesSchema(const xmlAttr* attribute) {
  const std::string name = reinterpret_cast<const char*>(attribute->name);
  return IsSchemaInstance(attribute->ns) && (name == "schemaLocation" || name == "noNamespaceSchemaLocation");
}

bool IsBlank(const xmlNode* text) {
  const std::string content = text->content != nullptr ? reinterpret_cast<const char*>(text->content) : "";
  return std::all_of(content.begin(), content.end(), [](unsigned char letter) { return isspace(letter); });
}

/// Finds what is neither element nor attribute: the daemon does not read it.
void CheckBetweenElements(const xmlNode* node, Findings* findings) {
  if ((node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) && !IsBlank(node)) {
    findings->Error(LineOf(node), "text in <" + NameOf(node->parent) +
                                      ">: the daemon passes over it; did you mean value=\"...\" in the tag?");
  } else if (node->type == XML_ENTITY_REF_NODE) {
    findings->Error(LineOf(node), "entity " + NameOf(node) + " in place of elements: the daemon passes over it");
  }
}

/// The daemon ignores namespaces. Only the attributes that name a schema need one.
void CheckNamespaces(const xmlNode* element, Findings* findings) {
  for (const xmlNs* space = element->nsDef; space != nullptr; space = space->next) {
    if (!IsSchemaInstance(space)) {
      findings->Warning(LineOf(element), NameOf(element) + ": a namespace has no effect, and the schema knows none");
    }
  }
}

void CheckRootAttributes(const xmlNode* root, Findings* findings) {
  for (const xmlAttr* attribute = root->properties; attribute != nullptr; attribute = attribute->next) {
    if (!NamesSchema(attribute)) {
      const std::string name = reinterpret_cast<const char*>(attribute->name);
      findings->Warning(LineOf(root), "the root element's attribute " + Quoted(name) + " has no effect");
    }
  }
}

void CheckAttributes(const xmlNode* element, const ElementRule& rule, Findings* findings) {
  const int line = LineOf(element);
  for (const xmlAttr* attribute = element->properties; attribute != nullptr; attribute = attribute->next) {
    const std::string name = reinterpret_cast<const char*>(attribute->name);
    if (!NamesSchema(attribute) && FindAttribute(rule, name) == nullptr) {
      findings->Error(line, std::string(rule.name) + ": unknown attribute " + Quoted(name) +
                                ": the daemon passes over it" + HintForAttribute(rule, name));
    }
  }
  for (const AttributeRule* attribute = rule.attributes; attribute->name != nullptr; ++attribute) {
    const std::optional<std::string> text = AttributeOf(element, attribute->name);
    if (text.has_value()) {
      CheckValue(rule, *attribute, *text, line, findings);
    } else if (attribute->required) {
      const bool isWriteMode = rule.name == std::string("writeMode");
      findings->Error(line, std::string(rule.name) + " without " + attribute->name + ": the daemon " +
                                (isWriteMode ? "takes factory" : "finds nothing in it"));
    }
  }
}

void CheckRepeat(const xmlNode* element, const ElementRule& rule, std::map<std::string, int>* firstLines,
                 Findings* findings) {
  const auto [first, isNew] = firstLines->emplace(rule.name, LineOf(element));
  if (isNew || rule.repeat == Repeat::All) {
    return;
  }
  const bool isStyle = rule.name == std::string("logStyle");
  findings->Warning(LineOf(element), std::string(rule.name) + " again (first in line " + std::to_string(first->second) +
                                         "): " + (isStyle ? "of each attribute " : "") + "the " +
                                         (rule.repeat == Repeat::First ? "first" : "last") + " one counts");
}

}  // namespace

void CheckStructure(const xmlNode* parent, const std::string& parentName, Findings* findings) {
  CheckNamespaces(parent, findings);
  if (parentName == kRoot) {
    CheckRootAttributes(parent, findings);
  }
  std::map<std::string, int> firstLines;
  for (const xmlNode* node = parent->children; node != nullptr; node = node->next) {
    if (node->type != XML_ELEMENT_NODE) {
      CheckBetweenElements(node, findings);
      continue;
    }
    const std::string name = NameOf(node);
    const ElementRule* rule = FindRule(parentName, name);
    if (rule == nullptr) {
      const std::string where = parentName == kRoot ? "the root element" : parentName;
      findings->Error(LineOf(node), "element " + Quoted(name) + " does not belong in " + where +
                                        ": the daemon passes over it" + HintForElement(parentName, name));
      continue;
    }
    if (parentName == kRoot) {
      findings->SetService(AttributeOf(node, "name").value_or(""));
    }
    CheckAttributes(node, *rule, findings);
    CheckRepeat(node, *rule, &firstLines, findings);
    CheckStructure(node, name, findings);
    if (parentName == kRoot) {
      findings->SetService("");
    }
  }
}

}  // namespace Quilcheck
