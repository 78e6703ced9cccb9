// The built-in services, for a device without a configuration file or without an XML parser.

#include <string.h>

#include "config/quil_config.h"
#include "config/records.h"

using namespace QuilCommon;

namespace {

struct BuiltinNode {
  const char* dataPath;
  const char* titlePath;
  const char* title;
  size_t width;
};

struct BuiltinService {
  const char* name;
  type_style style;
  size_t pollingInterval;
  const char* outputFilePath;
  size_t rotateSizeKB;
  size_t mostFiles;
  uint32_t cpuSet;
  bool modeFollowsDevice;  ///< the device's properties choose the write mode; otherwise it stays WRITE_MMAP
  BuiltinNode nodes[3];    ///< up to one without a path
};

constexpr BuiltinService kServices[] = {
    {QuilConfig::kBuiltInServices[0],
     STYLE_MONITOR_NODE,
     0,
     "/data/log/android_logs/kmsgcat-log",
     4096,
     25,
     CPU_SET_NONE,
     true,
     {{"/proc/kmsg", nullptr, nullptr, 0}}},
    {QuilConfig::kBuiltInServices[1],
     STYLE_POLL_NODE,
     5,
     "/data/log/charge-log/charge-log",
     4096,
     20,
     CPU_SET_LITTLE,
     false,
     {{"DateTime", nullptr, "Time", 23},
      {"/sys/class/kq_power/coul/coul_data/gaugelog", "/sys/class/kq_power/coul/coul_data/gaugelog_head", nullptr, 0},
      {"/sys/class/kq_power/charger/charge_data/chargelog", "/sys/class/kq_power/charger/charge_data/chargelog_head",
       nullptr, 0}}},
};

/// Copies `text`, which may be absent. False: there was a text but no memory.
bool CopyOptional(const char* text, char** copy) {
  *copy = text != nullptr ? CopyText(text) : nullptr;
  return text == nullptr || *copy != nullptr;
}

/// Appends copies of the nodes to `group`. False: no memory; what was appended belongs to the group.
bool AddNodes(const BuiltinService& service, QuilcatGroup_t* group) {
  for (const BuiltinNode& node : service.nodes) {
    auto* set = node.dataPath != nullptr ? AppendInput<QuilcatInputNodeSet_t>(group) : nullptr;
    if (set == nullptr) {
      return node.dataPath == nullptr;
    }
    set->width = node.width;
    if (!CopyOptional(node.dataPath, &set->data_path) || !CopyOptional(node.titlePath, &set->title_path) ||
        !CopyOptional(node.title, &set->title)) {
      return false;
    }
  }
  return true;
}

/// Fills `info` with `service`. False: no memory; what was filled belongs to `info`.
bool Build(const BuiltinService& service, QuilcatInfo_t* info) {
  auto* group = Append(&info->group_list);
  if (group == nullptr) {
    return false;
  }
  group->style = service.style;
  group->polling_interval = service.pollingInterval;
  group->info = info;
  info->rotate_size_kbytes = service.rotateSizeKB;
  info->maxCompressdFiles = service.mostFiles;
  info->cpu_set = service.cpuSet;
  if (service.modeFollowsDevice) {
    info->writeMode = WriteModeOfDevice(PropertyIs);
  }
  return AddNodes(service, group) && CopyOptional(service.outputFilePath, &group->output_file_path) &&
         CopyOptional(service.name, &info->name);
}

}  // namespace

int QuilConfig::parseDefault(const char* name, QuilcatInfo_t* info) {
  if (name == nullptr || info == nullptr || PropertyIs("init.svc.recovery", "running")) {
    return 1;
  }
  for (const BuiltinService& service : kServices) {
    if (strcmp(name, service.name) != 0) {
      continue;
    }
    if (Build(service, info)) {
      return 0;
    }
    free_config_file(info);
    break;
  }
  return 1;
}
