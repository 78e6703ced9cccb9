// Checks of single elements: whether they belong in their parent, with these attributes and values.

#include <libxml/tree.h>

#include <map>

#include "quilcheck/document.h"
#include "quilcheck/rules.h"

using namespace ConfigGrammar;

namespace Quilcheck {

namespace {

constexpr char kSchemaInstance[] = "http://www.w3.org/2001/XMLSchema-instance";

/// The declaration that names the schema, for editors.
bool IsSchemaInstance(const xmlNs* space) {
  return space != nullptr && space->href != nullptr &&
         xmlStrcmp(space->href, reinterpret_cast<const xmlChar*>(kSchemaInstance)) == 0;
}

std::string AttributeName(const xmlAttr* attribute) {
  return reinterpret_cast<const char*>(attribute->name);
}

bool NamesSchema(const xmlAttr* attribute) {
  const std::string name = AttributeName(attribute);
  return IsSchemaInstance(attribute->ns) && (name == "schemaLocation" || name == "noNamespaceSchemaLocation");
}

/// Finds what is neither element nor attribute: the daemon does not read it.
void CheckBetweenElements(const xmlNode* node, Findings* findings) {
  if ((node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) && xmlIsBlankNode(node) == 0) {
    findings->Add(node, "text-ignored", "text in <" + NameOf(node->parent) + '>',
                  "; did you mean value=\"...\" in the tag?");
  } else if (node->type == XML_ENTITY_REF_NODE) {
    findings->Add(node, "text-ignored", "entity " + NameOf(node) + " in place of elements");
  }
}

/// The daemon ignores namespaces, and attributes of the root element. Those that name a schema are for editors.
void CheckIgnored(const xmlNode* element, bool isRoot, Findings* findings) {
  for (const xmlNs* space = element->nsDef; space != nullptr; space = space->next) {
    if (!IsSchemaInstance(space)) {
      findings->Add(element, "no-effect", NameOf(element) + ": a namespace has no effect, and the schema knows none");
    }
  }
  for (const xmlAttr* attribute = element->properties; isRoot && attribute != nullptr; attribute = attribute->next) {
    if (!NamesSchema(attribute)) {
      findings->Add(element, "no-effect",
                    "the root element's attribute " + Quoted(AttributeName(attribute)) + " has no effect");
    }
  }
}

void CheckAttributes(const xmlNode* element, const Element& row, Findings* findings) {
  const std::string name = row.name;
  for (const xmlAttr* attribute = element->properties; attribute != nullptr; attribute = attribute->next) {
    const std::string own = AttributeName(attribute);
    if (!NamesSchema(attribute) && FindAttribute(row, own) == nullptr) {
      findings->Add(element, "attribute-unknown", name + ": unknown attribute " + Quoted(own),
                    HintForAttribute(row, own));
    }
  }
  for (const Attribute* attribute = row.attributes; attribute->name != nullptr; ++attribute) {
    const std::optional<std::string> text = AttributeOf(element, attribute->name);
    if (text.has_value()) {
      CheckValue(element, row, *attribute, *text, findings);
    } else if (row.Needs(*attribute)) {
      findings->Add(element, "value-missing",
                    name + " without " + attribute->name + ": the daemon " + Otherwise(*attribute));
    }
  }
}

void CheckRepeat(const xmlNode* element, const Element& row, std::map<std::string, int>* firstLines,
                 Findings* findings) {
  const auto [first, isNew] = firstLines->emplace(row.name, LineOf(element));
  if (!isNew && row.repeat != Repeat::Adds && !row.HoldsOthers()) {
    findings->Add(
        element, "again",
        std::string(row.name) + " again (first in line " + std::to_string(first->second) + "): " + WhichCounts(row));
  }
}

}  // namespace

void CheckStructure(const xmlNode* parent, const std::string& parentName, Findings* findings) {
  CheckIgnored(parent, parentName == kRoot, findings);
  std::map<std::string, int> firstLines;
  for (const xmlNode* node = parent->children; node != nullptr; node = node->next) {
    if (node->type != XML_ELEMENT_NODE) {
      CheckBetweenElements(node, findings);
      continue;
    }
    const std::string name = NameOf(node);
    const Element* row = Find(parentName.c_str(), name.c_str());
    if (row == nullptr) {
      const std::string where = parentName == kRoot ? "the root element" : parentName;
      findings->Add(node, "element-unknown", "element " + Quoted(name) + " does not belong in " + where,
                    HintForElement(parentName, name));
      continue;
    }
    if (parentName == kRoot) {
      findings->SetService(AttributeOf(node, "name").value_or(""));
    }
    CheckAttributes(node, *row, findings);
    CheckRepeat(node, *row, &firstLines, findings);
    CheckStructure(node, name, findings);
    if (parentName == kRoot) {
      findings->SetService("");
    }
  }
}

}  // namespace Quilcheck
