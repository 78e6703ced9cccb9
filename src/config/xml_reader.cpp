// Reads a service from the first configuration file that exists.
//
// Every value is an attribute. The children of an element are read in document order by a table that tells, for each
// element name, what reads it; only group elements report a name that is in no table.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <memory>

#include "config/quil_config.h"
#include "config/records.h"
#include "config/xml_parser.h"

using namespace QuilCommon;

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

/// The text of an attribute; null when the element does not have it.
AttributeText Attribute(xmlNode* node, const char* name) {
  return AttributeText(xmlParser.getProp(node, Xml(name)));
}

bool IsNamed(const xmlNode* node, const char* name) {
  return node->type == XML_ELEMENT_NODE && xmlParser.compare(node->name, Xml(name)) == 0;
}

/// Stores the number that an attribute's text begins with. A missing attribute leaves `*field` alone.
void ReadInteger(xmlNode* node, const char* attribute, size_t* field) {
  const AttributeText text = Attribute(node, attribute);
  if (text != nullptr) {
    ReadNumber(Plain(text.get()), field);
  }
}

template <typename Code>
struct Keyword {
  const char* word;
  Code code;
};

/// Stores the code of the keyword that an attribute equals; any other text, or none, leaves `*field` alone.
template <typename Code, size_t count>
void ReadKeyword(xmlNode* node, const char* attribute, const Keyword<Code> (&keywords)[count], Code* field) {
  const AttributeText text = Attribute(node, attribute);
  if (text == nullptr) {
    return;
  }
  for (const Keyword<Code>& keyword : keywords) {
    if (xmlParser.compare(text.get(), Xml(keyword.word)) == 0) {
      *field = keyword.code;
    }
  }
}

template <typename Target>
struct ElementReader {
  const char* name;
  void (*read)(xmlNode* node, Target* target);
};

/// Has each child element of `parent` read into `target` by the reader of its name, others by `readOther` if given.
template <typename Target, size_t count>
void ReadChildren(xmlNode* parent, const ElementReader<Target> (&readers)[count], Target* target,
                  void (*readOther)(xmlNode* node) = nullptr) {
  for (xmlNode* child = parent->children; child != nullptr; child = child->next) {
    if (child->type != XML_ELEMENT_NODE) {
      continue;
    }
    const auto* reader = std::find_if(std::begin(readers), std::end(readers),
                                      [child](const auto& candidate) { return IsNamed(child, candidate.name); });
    if (reader != std::end(readers)) {
      reader->read(child, target);
    } else if (readOther != nullptr) {
      readOther(child);
    }
  }
}

/// The first occurrence with a value counts.
void ReadStringOnce(xmlNode* node, char** field) {
  if (*field == nullptr) {
    QuilConfig::parseXmlNodeStr(node, field);
  }
}

void ReadCpuSet(xmlNode* node, QuilcatInfo_t* info) {
  static constexpr Keyword<uint32_t> kKeywords[] = {{"little", CPU_SET_LITTLE}, {"big", CPU_SET_BIG}};
  info->cpu_set = CPU_SET_NONE;
  ReadKeyword(node, "value", kKeywords, &info->cpu_set);
}

void ReadEmptyFiles(xmlNode* node, QuilcatInfo_t* info) {
  static constexpr Keyword<type_empty_files> kKeywords[] = {{"remove", EMPTY_FILES_REMOVE}};
  ReadKeyword(node, "value", kKeywords, &info->empty_files);
}

void ReadWidth(xmlNode* node, QuilcatInputNodeSet_t* set) {
  if (set->width == 0) {
    ReadInteger(node, "value", &set->width);
  }
}

constexpr ElementReader<QuilcatInfo_t> kServiceElements[] = {
    {"logRotateSizeKBytes",
     [](xmlNode* node, QuilcatInfo_t* info) { ReadInteger(node, "value", &info->rotate_size_kbytes); }},
    {"maxCompressdFiles",
     [](xmlNode* node, QuilcatInfo_t* info) { ReadInteger(node, "value", &info->maxCompressdFiles); }},
    {"cpuSets", ReadCpuSet},
    {"writeMode", QuilConfig::parseXmlNodeWriteMode},
    {"syncSeconds", [](xmlNode* node, QuilcatInfo_t* info) { ReadInteger(node, "value", &info->sync_seconds); }},
    {"emptyFiles", ReadEmptyFiles},
    {"quilcatGroup", QuilConfig::parseXmlNodeQuilcatGroup},
};

constexpr ElementReader<QuilcatGroup_t> kGroupElements[] = {
    {"logStyle", QuilConfig::parseXmlNodeLogStyle},         {"outputFilePath", QuilConfig::parseXmlNodeOutputFilePath},
    {"inputNodeSet", QuilConfig::parseXmlNodeInputNodeSet}, {"inputDirSet", QuilConfig::parseXmlNodeInputDirSet},
    {"inputCmdSet", QuilConfig::parseXmlNodeInputCmdSet},
};

constexpr ElementReader<QuilcatInputNodeSet_t> kNodeSetElements[] = {
    {"dataPath", [](xmlNode* node, QuilcatInputNodeSet_t* set) { ReadStringOnce(node, &set->data_path); }},
    {"titlePath", [](xmlNode* node, QuilcatInputNodeSet_t* set) { ReadStringOnce(node, &set->title_path); }},
    {"title", [](xmlNode* node, QuilcatInputNodeSet_t* set) { ReadStringOnce(node, &set->title); }},
    {"alterdataPath",
     [](xmlNode* node, QuilcatInputNodeSet_t* set) { QuilConfig::parseXmlNodeStrList(node, &set->alter_data_path); }},
    {"width", ReadWidth},
};

constexpr ElementReader<QuilcatStrList_t> kDirSetElements[] = {
    {"inputDirPath", [](xmlNode* node, QuilcatStrList_t* directory) { ReadStringOnce(node, &directory->str); }},
    {"pickNode",
     [](xmlNode* node, QuilcatStrList_t* directory) { QuilConfig::parseXmlNodeStrList(node, &directory->next); }},
};

void ReportGroupElement(xmlNode* node) {
  fprintf(stderr, "Unsupport quilcatGroup para [%s]!\n", Plain(node->name));
}

int ReadDocument(xmlDoc* document, const char* name, QuilcatInfo_t* info) {
  xmlNode* root = xmlParser.docGetRootElement(document);
  if (root == nullptr) {
    return 1;
  }
  return QuilConfig::parseQuilcatConfigs(document, root->children, name, info);
}

int ReadFile(const char* path, const char* name, QuilcatInfo_t* info) {
  xmlDoc* document = xmlParser.parseFile(path);
  if (document == nullptr) {
    return 1;
  }
  const int result = ReadDocument(document, name, info);
  xmlParser.freeDoc(document);
  return result;
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

}  // namespace

int QuilConfig::parse_config_file(const char* name, QuilcatInfo_t* info) {
  if (name == nullptr || info == nullptr) {
    return 1;
  }
  const char* path = initLibxml2() == 0 ? FindFile() : nullptr;
  // A file that exists is final: neither the next candidate nor a built-in service replaces it.
  const int result = path != nullptr ? ReadFile(path, name, info) : parseDefault(name, info);
  releaseLibxml2();
  return result;
}

int QuilConfig::parseQuilcatConfigs(xmlDoc* document, xmlNode* first, const char* name, QuilcatInfo_t* info) {
  if (document == nullptr || first == nullptr || name == nullptr || info == nullptr) {
    return 1;
  }
  for (xmlNode* node = first; node != nullptr; node = node->next) {
    if (!IsNamed(node, "quilcat")) {
      continue;
    }
    const AttributeText service = Attribute(node, "name");
    // A start without a service name must not find a service without a name.
    if (service != nullptr && *name != '\0' && strcmp(Plain(service.get()), name) == 0) {
      return parseQuilcat(node, name, info);
    }
  }
  return 1;
}

int QuilConfig::parseQuilcat(xmlNode* service, const char* name, QuilcatInfo_t* info) {
  if (service == nullptr || name == nullptr || info == nullptr) {
    return 1;
  }
  info->name = CopyText(name);
  if (info->name == nullptr) {
    return 1;
  }
  ReadChildren(service, kServiceElements, info);
  printQuilcatInfo(info);
  return checkQuilcatInfo(info);
}

void QuilConfig::parseXmlNodeWriteMode(xmlNode* node, QuilcatInfo_t* info) {
  static constexpr Keyword<type_write> kKeywords[] = {{"mmap", WRITE_MMAP}, {"factory", WRITE_FACTORY}};
  if (node == nullptr || info == nullptr) {
    return;
  }
  type_write mode = WRITE_FACTORY;
  if (WriteModeOfDevice() != WRITE_FACTORY) {
    ReadKeyword(node, "value", kKeywords, &mode);
  }
  info->writeMode = mode;
}

void QuilConfig::parseXmlNodeQuilcatGroup(xmlNode* node, QuilcatInfo_t* info) {
  if (node == nullptr || info == nullptr) {
    return;
  }
  QuilcatGroup_t* group = Append(&info->group_list);
  if (group == nullptr) {
    return;
  }
  group->info = info;
  ReadChildren(node, kGroupElements, group, ReportGroupElement);
}

void QuilConfig::parseXmlNodeLogStyle(xmlNode* node, QuilcatGroup_t* group) {
  static constexpr Keyword<type_style> kKeywords[] = {
      {"monitor_node", STYLE_MONITOR_NODE},
      {"monitor_dir", STYLE_MONITOR_DIR},
      {"poll_node", STYLE_POLL_NODE},
      {"poll_cmd", STYLE_POLL_CMD},
  };
  static constexpr Keyword<type_write_failure> kWriteFailures[] = {{"retry", WRITE_FAILURE_RETRY}};
  if (node == nullptr || group == nullptr) {
    return;
  }
  // The style tells what kind of records `input` holds.
  if (group->input == nullptr) {
    ReadKeyword(node, "value", kKeywords, &group->style);
  }
  ReadInteger(node, "interval", &group->polling_interval);
  ReadInteger(node, "failureRetry", &group->failureRetry);
  ReadKeyword(node, "onWriteFailure", kWriteFailures, &group->on_write_failure);
}

void QuilConfig::parseXmlNodeOutputFilePath(xmlNode* node, QuilcatGroup_t* group) {
  if (node != nullptr && group != nullptr) {
    parseXmlNodeStr(node, &group->output_file_path);
  }
}

void QuilConfig::parseXmlNodeInputNodeSet(xmlNode* node, QuilcatGroup_t* group) {
  if (node == nullptr || group == nullptr || InputKindOf(group->style) != INPUT_NODE_SETS) {
    return;
  }
  auto* set = AppendInput<QuilcatInputNodeSet_t>(group);
  if (set != nullptr) {
    ReadChildren(node, kNodeSetElements, set);
  }
}

void QuilConfig::parseXmlNodeInputDirSet(xmlNode* node, QuilcatGroup_t* group) {
  if (node == nullptr || group == nullptr || InputKindOf(group->style) != INPUT_DIRECTORY) {
    return;
  }
  if (group->input != nullptr) {
    fprintf(stderr, "Only support one inputDirSet!\n");
    return;
  }
  auto* directory = AppendInput<QuilcatStrList_t>(group);
  if (directory != nullptr) {
    ReadChildren(node, kDirSetElements, directory);
  }
}

void QuilConfig::parseXmlNodeInputCmdSet(xmlNode* node, QuilcatGroup_t* group) {
  if (node == nullptr || group == nullptr || InputKindOf(group->style) != INPUT_COMMANDS) {
    return;
  }
  auto* command = AppendInput<QuilcatStrList_t>(group);
  if (command == nullptr) {
    return;
  }
  for (xmlNode* child = node->children; child != nullptr; child = child->next) {
    if (IsNamed(child, "command")) {
      parseXmlNodeStr(child, &command->str);
      return;
    }
  }
}

void QuilConfig::parseXmlNodeStr(xmlNode* node, char** field) {
  if (node == nullptr || field == nullptr) {
    return;
  }
  const AttributeText text = Attribute(node, "value");
  char* copy = text != nullptr ? CopyText(Plain(text.get())) : nullptr;
  if (copy != nullptr) {
    free(*field);
    *field = copy;
  }
}

void QuilConfig::parseXmlNodeStrList(xmlNode* node, QuilcatStrList_t** list) {
  if (node == nullptr || list == nullptr) {
    return;
  }
  QuilcatStrList_t* entry = Append(list);
  if (entry != nullptr) {
    parseXmlNodeStr(node, &entry->str);
  }
}
