#include "quilcheck/service_reader.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>

#include "config/quil_config.h"
#include "config/records.h"
#include "config/xml_parser.h"
#include "quilcheck/document.h"

using namespace QuilCommon;

namespace Quilcheck {

namespace {

/// Binds the daemon's reader to the libxml2 that this program is linked with.
class ParserBinding {
 public:
  ParserBinding() { xmlParser = {nullptr, xmlParseFile, xmlDocGetRootElement, xmlFreeDoc, xmlGetProp, xmlStrcmp}; }
  ~ParserBinding() { xmlParser = {}; }
  ParserBinding(const ParserBinding&) = delete;
  ParserBinding& operator=(const ParserBinding&) = delete;
};

/// Drops what is written to standard error while it lives.
class SilentStandardError {
 public:
  SilentStandardError() : saved(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) {
      dup2(nowhere, STDERR_FILENO);
      close(nowhere);
    }
  }
  ~SilentStandardError() {
    if (saved >= 0) {
      dup2(saved, STDERR_FILENO);
      close(saved);
    }
  }
  SilentStandardError(const SilentStandardError&) = delete;
  SilentStandardError& operator=(const SilentStandardError&) = delete;

 private:
  const int saved;
};

template <typename Record>
const Record* Last(const void* chain) {
  auto* record = static_cast<const Record*>(chain);
  while (record != nullptr && record->next != nullptr) {
    record = record->next;
  }
  return record;
}

constexpr struct {
  const char* name;
  void (*read)(xmlNode*, QuilcatGroup_t*);
} kInputs[] = {
    {"inputNodeSet", QuilConfig::parseXmlNodeInputNodeSet},
    {"inputDirSet", QuilConfig::parseXmlNodeInputDirSet},
    {"inputCmdSet", QuilConfig::parseXmlNodeInputCmdSet},
};

/// The input record that was added last. For a directory that is the first: its picked names follow it in the chain.
const void* Newest(const QuilcatGroup_t* group) {
  switch (InputKindOf(group->style)) {
    case INPUT_NODE_SETS:
      return Last<QuilcatInputNodeSet_t>(group->input);
    case INPUT_COMMANDS:
      return Last<QuilcatStrList_t>(group->input);
    case INPUT_DIRECTORY:
    case INPUT_NONE:
      break;
  }
  return group->input;
}

/// Reads one input element with `read`, and notes what the daemon makes of it.
void ReadInput(xmlNode* element, void (*read)(xmlNode*, QuilcatGroup_t*), GroupReading* group) {
  const void* before = Newest(group->record.get());
  read(element, group->record.get());
  const void* added = Newest(group->record.get());
  if (added == before) {
    group->dropped.push_back({element, group->record->style, group->style == nullptr});
  } else if (InputKindOf(group->record->style) == INPUT_NODE_SETS) {
    group->nodeSets.push_back({element, static_cast<const QuilcatInputNodeSet_t*>(added)});
  } else {
    group->texts.push_back({element, static_cast<const QuilcatStrList_t*>(added)});
  }
}

void ReadGroupElement(xmlNode* element, GroupReading* group) {
  if (IsElement(element, "logStyle")) {
    group->style = element;
    QuilConfig::parseXmlNodeLogStyle(element, group->record.get());
  } else if (IsElement(element, "outputFilePath")) {
    group->output = AttributeOf(element, "value").has_value() ? element : group->output;
    QuilConfig::parseXmlNodeOutputFilePath(element, group->record.get());
  } else {
    for (const auto& input : kInputs) {
      if (IsElement(element, input.name)) {
        ReadInput(element, input.read, group);
      }
    }
  }
}

GroupReading ReadGroup(xmlNode* element, QuilcatInfo_t* info) {
  GroupReading group;
  group.element = element;
  group.record.reset(NewRecord<QuilcatGroup_t>());
  group.record->info = info;
  for (xmlNode* child = element->children; child != nullptr; child = child->next) {
    ReadGroupElement(child, &group);
  }
  return group;
}

std::string WhyWriteMode(const xmlNode* service) {
  const xmlNode* last = nullptr;
  for (const xmlNode* child = service->children; child != nullptr; child = child->next) {
    last = IsElement(child, "writeMode") ? child : last;
  }
  if (last == nullptr) {
    return "no writeMode element: on every device";
  }
  if (IsFactoryDevice()) {
    return "ro.runmode is factory, whatever writeMode says";
  }
  if (WriteModeOfDevice() == WRITE_FACTORY) {
    return "ro.build.type is eng and ro.build.version.vexa is empty, whatever writeMode says";
  }
  const std::string value = AttributeOf(last, "value").value_or("");
  return value == "mmap" || value == "factory" ? "as writeMode says" : "writeMode has no keyword";
}

}  // namespace

void FreeGroup::operator()(QuilcatGroup_t* group) const {
  QuilConfig::free_logcatGroup(group);
}

void FreeService::operator()(QuilcatInfo_t* info) const {
  QuilConfig::free_config_file(info);
  free(info);
}

ServiceReading ReadService(xmlDoc* document, xmlNode* element, const std::string& name) {
  const ParserBinding binding;
  const SilentStandardError silence;
  ServiceReading service;
  service.name = name;
  service.element = element;
  service.record.reset(NewRecord<QuilcatInfo_t>());
  xmlNode* first = xmlDocGetRootElement(document)->children;
  service.valid = QuilConfig::parseQuilcatConfigs(document, first, name.c_str(), service.record.get()) == 0;
  service.whyWriteMode = WhyWriteMode(element);
  for (xmlNode* child = element->children; child != nullptr; child = child->next) {
    if (IsElement(child, "quilcatGroup")) {
      service.groups.push_back(ReadGroup(child, service.record.get()));
    }
  }
  return service;
}

}  // namespace Quilcheck
