#include "config/xml_reader.h"

#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <memory>

#include "config/quil_config.h"

using namespace QuilCommon;
using ConfigGrammar::Attribute;
using ConfigGrammar::Element;
using ConfigGrammar::Kind;
using ConfigGrammar::Repeat;

namespace {

struct FreeText {
  void operator()(xmlChar* text) const { free(text); }
};
using AttributeText = std::unique_ptr<xmlChar, FreeText>;

const xmlChar* Xml(const char* text) {
  return reinterpret_cast<const xmlChar*>(text);
}
const char* Plain(const xmlChar* text) {
  return reinterpret_cast<const char*>(text);
}

/// Stores a copy of `text` and releases what `*field` held. Without a text nothing changes.
void StoreText(const xmlChar* text, char** field) {
  char* copy = text != nullptr ? CopyText(Plain(text)) : nullptr;
  if (copy != nullptr) {
    free(*field);
    *field = copy;
  }
}

void StoreText(const xmlChar* text, Repeat repeat, void* field) {
  if (repeat == Repeat::Adds) {
    QuilcatStrList_t* entry = Append(static_cast<QuilcatStrList_t**>(field));
    if (entry != nullptr) {
      StoreText(text, &entry->str);
    }
    return;
  }
  auto* own = static_cast<char**>(field);
  if (repeat != Repeat::FillsUp || *own == nullptr) {
    StoreText(text, own);
  }
}

void StoreNumber(const xmlChar* text, Repeat repeat, size_t* field) {
  if (text != nullptr && (repeat != Repeat::FillsUp || *field == 0)) {
    ReadNumber(Plain(text), field);
  }
}

/// The codes are enumerations with an underlying type of 32 bits.
void StoreCode(uint32_t code, void* field) {
  memcpy(field, &code, sizeof code);
}

/// The configuration file of this device; null when it has none.
const char* FindFile() {
  for (const char* path : QuilConfig::kCandidates) {
    if (access(path, F_OK) == 0) {
      return path;
    }
  }
  return nullptr;
}

int ReadFile(const XmlParser& parser, const char* path, const char* name, QuilcatInfo_t* info) {
  xmlDoc* document = parser.parseFile(path);
  if (document == nullptr) {
    return 1;
  }
  xmlNode* root = parser.docGetRootElement(document);
  const XmlReader reader(parser, stderr, PropertyIs);
  const int result = root != nullptr ? reader.parseQuilcatConfigs(document, root->children, name, info) : 1;
  parser.freeDoc(document);
  return result;
}

}  // namespace

int QuilConfig::parse_config_file(const char* name, QuilcatInfo_t* info) {
  if (name == nullptr || info == nullptr) {
    return 1;
  }
  XmlParser parser;
  const char* path = initLibxml2(&parser) == 0 ? FindFile() : nullptr;
  // A file that exists is final: neither the next candidate nor a built-in service replaces it.
  const int result = path != nullptr ? ReadFile(parser, path, name, info) : parseDefault(name, info);
  releaseLibxml2(&parser);
  return result;
}

int XmlReader::parseQuilcatConfigs(xmlDoc* document, xmlNode* first, const char* name, QuilcatInfo_t* info) const {
  if (document == nullptr || first == nullptr || name == nullptr || info == nullptr) {
    return 1;
  }
  for (xmlNode* node = first; node != nullptr; node = node->next) {
    if (!IsNamed(node, "quilcat")) {
      continue;
    }
    const AttributeText service(parser.getProp(node, Xml("name")));
    // A start without a service name must not find a service without a name.
    if (service != nullptr && *name != '\0' && strcmp(Plain(service.get()), name) == 0) {
      return parseQuilcat(node, name, info);
    }
  }
  return 1;
}

int XmlReader::parseQuilcat(xmlNode* service, const char* name, QuilcatInfo_t* info) const {
  if (service == nullptr || name == nullptr || info == nullptr) {
    return 1;
  }
  info->name = CopyText(name);
  if (info->name == nullptr) {
    return 1;
  }
  ReadChildren(service, "quilcat", info);
  if (messages != nullptr) {
    QuilConfig::printQuilcatInfo(info, messages);
  }
  return QuilConfig::checkQuilcatInfo(info);
}

bool XmlReader::IsNamed(const xmlNode* node, const char* name) const {
  return node->type == XML_ELEMENT_NODE && parser.compare(node->name, Xml(name)) == 0;
}

void XmlReader::ReadChildren(xmlNode* parent, const char* parentName, void* record) const {
  for (xmlNode* child = parent->children; child != nullptr; child = child->next) {
    if (child->type != XML_ELEMENT_NODE) {
      continue;
    }
    const Element* row = ConfigGrammar::Find(parentName, Plain(child->name));
    if (row != nullptr) {
      ReadChild(child, *row, record);
      if (row->repeat == Repeat::IsPassedOver) {
        return;  // its parent has nothing else
      }
    } else if (messages != nullptr && strcmp(parentName, "quilcatGroup") == 0) {
      fprintf(messages, "Unsupport quilcatGroup para [%s]!\n", Plain(child->name));
    }
  }
}

void XmlReader::ReadChild(xmlNode* node, const Element& row, void* record) const {
  void* target = row.HoldsOthers() ? Begin(row, record) : record;
  for (const Attribute* attribute = row.attributes; attribute->name != nullptr; ++attribute) {
    ReadAttribute(node, row, *attribute, record);
  }
  if (observer) {
    observer(node, target);
  }
  if (row.HoldsOthers() && target != nullptr) {
    ReadChildren(node, row.name, target);
  }
}

void XmlReader::ReadAttribute(xmlNode* node, const Element& row, const Attribute& attribute, void* record) const {
  void* field = static_cast<char*>(record) + attribute.field;
  const AttributeText text(parser.getProp(node, Xml(attribute.name)));
  if (attribute.kind == Kind::Style && static_cast<QuilcatGroup_t*>(record)->input != nullptr) {
    return;  // the style tells what kind of records the inputs are
  }
  const bool isOverruled = attribute.kind == Kind::WriteMode && WriteModeOfDevice(propertyIs) == WRITE_FACTORY;
  if (attribute.keywords != nullptr) {
    StoreKeyword(isOverruled ? nullptr : text.get(), attribute, field);
  } else if (attribute.IsNumber()) {
    StoreNumber(text.get(), row.repeat, static_cast<size_t*>(field));
  } else {
    StoreText(text.get(), row.repeat, field);
  }
}

void XmlReader::StoreKeyword(const xmlChar* text, const Attribute& attribute, void* field) const {
  if (attribute.otherwise >= 0) {
    StoreCode(static_cast<uint32_t>(attribute.otherwise), field);
  }
  if (text == nullptr) {
    return;
  }
  uint32_t code = attribute.firstCode;
  for (const char* word = attribute.keywords; *word != '\0'; ++code) {
    const size_t length = strcspn(word, " ");
    if (strlen(Plain(text)) == length && strncmp(Plain(text), word, length) == 0) {
      StoreCode(code, field);
    }
    word += length + (word[length] == ' ' ? 1 : 0);
  }
}

/// The record that the children of an element are read into; null: the element is passed over.
void* XmlReader::Begin(const Element& row, void* parent) const {
  if (row.brings == INPUT_NONE) {
    auto* info = static_cast<QuilcatInfo_t*>(parent);
    QuilcatGroup_t* added = Append(&info->group_list);
    if (added != nullptr) {
      added->info = info;
    }
    return added;
  }
  auto* group = static_cast<QuilcatGroup_t*>(parent);
  if (InputKindOf(group->style) != row.brings) {
    return nullptr;
  }
  switch (row.brings) {
    case INPUT_NONE:
      break;
    case INPUT_NODE_SETS:
      return AppendInput<QuilcatInputNodeSet_t>(group);
    case INPUT_DIRECTORY:
      if (group->input != nullptr && messages != nullptr) {
        fprintf(messages, "Only support one inputDirSet!\n");
      }
      return group->input == nullptr ? AppendInput<QuilcatStrList_t>(group) : nullptr;
    case INPUT_COMMANDS:
      return AppendInput<QuilcatStrList_t>(group);
  }
  return nullptr;
}
