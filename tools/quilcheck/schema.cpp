// The grammar for people and for editors.

#include <algorithm>

#include "quilcheck/grammar.h"

using namespace ConfigGrammar;

namespace Quilcheck {

namespace {

constexpr char kTypes[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<!-- Made by quilcheck from its grammar. What it refuses is wrong; what it cannot say, quilcheck finds. -->
<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema">
  <xs:simpleType name="blank"><xs:restriction base="xs:token"><xs:maxLength value="0"/></xs:restriction></xs:simpleType>
  <xs:simpleType name="number">
    <xs:restriction base="xs:nonNegativeInteger"><xs:maxInclusive value="2147483647"/></xs:restriction>
  </xs:simpleType>
  <xs:simpleType name="text"><xs:restriction base="xs:string"><xs:maxLength value="255"/></xs:restriction></xs:simpleType>
  <xs:simpleType name="name"><xs:restriction base="text"><xs:minLength value="1"/></xs:restriction></xs:simpleType>
  <xs:simpleType name="directory"><xs:restriction base="text"><xs:pattern value="/[\s\S]*"/></xs:restriction></xs:simpleType>
  <xs:simpleType name="path"><xs:restriction base="text"><xs:pattern value="/[\s\S]*[^/]"/></xs:restriction></xs:simpleType>
  <xs:simpleType name="column">
    <xs:restriction base="text"><xs:pattern value="/[\s\S]*[^/]|(DateTime|CurrentTime)[\s\S]*"/></xs:restriction>
  </xs:simpleType>
  <xs:element name="quilcatConfigs">
    <xs:complexType><xs:sequence><xs:element name="quilcat" type="quilcat" maxOccurs="unbounded"/></xs:sequence></xs:complexType>
    <xs:unique name="serviceName"><xs:selector xpath="quilcat"/><xs:field xpath="@name"/></xs:unique>
  </xs:element>
)";

/// Each kind for people and in the schema, in the order of Kind.
constexpr char kForPeople[] = "name number KiB seconds keyword keyword keyword path path path/time path text";
constexpr char kTypeNames[] = "name number number number - - - path path column directory text";

std::string NameOf(Kind kind, const char* names) {
  return Words(names)[static_cast<size_t>(kind)];
}

std::string TypeForPeople(const Attribute& attribute) {
  std::string text;
  for (const std::string& word : Words(attribute.keywords != nullptr ? attribute.keywords : "")) {
    text += (text.empty() ? "`" : ", `") + word + '`';
  }
  return text.empty() ? NameOf(attribute.kind, kForPeople) : text;
}

std::string AttributeType(const Element& element, const Attribute& attribute) {
  std::string text = std::string("<xs:attribute name=\"") + attribute.name + '"';
  text += element.Needs(attribute) ? " use=\"required\"" : "";
  if (attribute.keywords == nullptr) {
    return text + " type=\"" + NameOf(attribute.kind, kTypeNames) + "\"/>\n";
  }
  text += "><xs:simpleType><xs:restriction base=\"xs:string\">\n";
  for (const std::string& word : Words(attribute.keywords)) {
    text += "        <xs:enumeration value=\"" + word + "\"/>\n";
  }
  return text + "      </xs:restriction></xs:simpleType></xs:attribute>\n";
}

std::string Documentation(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '`'), text.end());
  return "    <xs:annotation><xs:documentation>" + text + "</xs:documentation></xs:annotation>\n";
}

std::string TypeOf(const Element& element) {
  std::string content, attributes, meaning = element.HoldsOthers() ? element.meaning : "";
  for (const Element* child = kElements; child->name != nullptr; ++child) {
    if (std::string(child->parent) == element.name) {
      content += std::string("      <xs:element name=\"") + child->name + "\" type=\"" + child->name + "\"/>\n";
    }
  }
  for (const Attribute* attribute = element.attributes; attribute->name != nullptr; ++attribute) {
    attributes += "      " + AttributeType(element, *attribute);
    meaning += (meaning.empty() ? "" : "; ") + std::string(attribute->name) + ": " + attribute->meaning;
  }
  const std::string inside = element.HoldsOthers() ? "    <xs:choice minOccurs=\"1\" maxOccurs=\"unbounded\">\n" +
                                                         content + "    </xs:choice>\n" + attributes
                                                   : "    <xs:simpleContent><xs:extension base=\"blank\">\n" +
                                                         attributes + "    </xs:extension></xs:simpleContent>\n";
  return std::string("  <xs:complexType name=\"") + element.name + "\">\n" + Documentation(meaning) + inside +
         "  </xs:complexType>\n";
}

}  // namespace

std::string ElementTable() {
  std::string table = "| In | Element | Attribute | Default | Again | Meaning |\n|---|---|---|---|---|---|\n";
  for (const Element* element = kElements; element->name != nullptr; ++element) {
    const std::string parent = *element->parent != '\0' ? element->parent : "root";
    std::string name = std::string("`") + element->name + '`', again = WhichCounts(*element);
    if (element->HoldsOthers()) {
      table += "| " + parent + " | " + name + " | | | " + again + " | " + element->meaning + " |\n";
    }
    for (const Attribute* attribute = element->attributes; attribute->name != nullptr; ++attribute) {
      const bool isFirst = !element->HoldsOthers() && attribute == element->attributes;
      table += "| " + (isFirst ? parent + " | " + name : " | ") + " | `" + attribute->name +
               "`: " + TypeForPeople(*attribute) + " | " + attribute->fallback + " | " + (isFirst ? again : "") +
               " | " + attribute->meaning + " |\n";
    }
  }
  return table;
}

std::string Schema() {
  std::string text = kTypes;
  for (const Element* element = kElements; element->name != nullptr; ++element) {
    text += TypeOf(*element);
  }
  return text + "</xs:schema>\n";
}

}  // namespace Quilcheck
