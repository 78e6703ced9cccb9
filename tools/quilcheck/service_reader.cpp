#include "quilcheck/service_reader.h"

#include "config/quil_config.h"
#include "config/xml_reader.h"
#include "platform/system_properties.h"
#include "quilcheck/document.h"

using namespace QuilCommon;

namespace Quilcheck {

namespace {

bool IsIn(const Properties& properties, const char* name, const char* expected) {
  const auto assumed = properties.find(name);
  return assumed != properties.end() ? assumed->second.substr(0, PROP_VALUE_MAX - 1) == expected
                                     : PropertyIs(name, expected);
}

std::string WhyWriteMode(const xmlNode* writeMode, const PropertyLookUp& propertyIs) {
  if (writeMode == nullptr) {
    return "no writeMode element: on every device";
  }
  if (propertyIs("ro.runmode", "factory")) {
    return "ro.runmode is factory, whatever writeMode says";
  }
  if (WriteModeOfDevice(propertyIs) == WRITE_FACTORY) {
    return "ro.build.type is eng and ro.build.version.vexa is empty, whatever writeMode says";
  }
  const std::string value = AttributeOf(writeMode, "value").value_or("");
  return value == "mmap" || value == "factory" ? "as writeMode says" : "writeMode has no keyword";
}

/// Notes what became of an element of a group.
void Note(const xmlNode* element, const void* record, GroupReading* group) {
  if (IsElement(element, "logStyle")) {
    group->style = element;
  } else if (IsElement(element, "outputFilePath")) {
    group->output = AttributeOf(element, "value").has_value() ? element : group->output;
  } else if (record == nullptr) {
    group->dropped.push_back({element, group->record->style, group->style == nullptr});
  } else if (IsElement(element, "inputNodeSet")) {
    group->nodeSets.push_back({element, static_cast<const QuilcatInputNodeSet_t*>(record)});
  } else if (IsElement(element, "inputDirSet") || IsElement(element, "inputCmdSet")) {
    group->texts.push_back({element, static_cast<const QuilcatStrList_t*>(record)});
  }
}

}  // namespace

void FreeService::operator()(QuilcatInfo_t* info) const {
  QuilConfig::free_config_file(info);
  free(info);
}

ServiceReading ReadService(xmlNode* element, const std::string& name, const Properties& properties) {
  const XmlParser parser = {nullptr, xmlParseFile, xmlDocGetRootElement, xmlFreeDoc, xmlGetProp, xmlStrcmp};
  const PropertyLookUp propertyIs = [&properties](const char* property, const char* expected) {
    return IsIn(properties, property, expected);
  };
  ServiceReading service;
  const xmlNode* writeMode = nullptr;
  const XmlReader reader(parser, nullptr, propertyIs, [&](const xmlNode* read, const void* record) {
    if (IsElement(read, "quilcatGroup")) {
      service.groups.emplace_back();
      service.groups.back().element = read;
      service.groups.back().record = static_cast<const QuilcatGroup_t*>(record);
    } else if (!service.groups.empty() && IsInside(read, service.groups.back().element)) {
      Note(read, record, &service.groups.back());
    } else if (IsElement(read, "writeMode")) {
      writeMode = read;
    }
  });
  service.name = name;
  service.element = element;
  service.record.reset(NewRecord<QuilcatInfo_t>());
  service.valid = reader.parseQuilcat(element, name.c_str(), service.record.get()) == 0;
  service.whyWriteMode = WhyWriteMode(writeMode, propertyIs);
  return service;
}

}  // namespace Quilcheck
