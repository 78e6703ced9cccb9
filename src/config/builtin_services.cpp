// The built-in services, for a device without a configuration file or without an XML parser.

#include <string.h>

#include "config/quil_config.h"
#include "config/records.h"

using namespace QuilCommon;

namespace {

struct BuiltinNode {
  const char* data_path;
  const char* title_path;
  const char* title;
  size_t width;
};

struct BuiltinService {
  const char* name;
  type_style style;
  size_t polling_interval;
  const char* output_file_path;
  size_t rotate_size_kbytes;
  size_t maxCompressdFiles;
  uint32_t cpu_set;
  bool modeFollowsDevice;  ///< the device's properties choose the write mode; otherwise it stays WRITE_MMAP
  const BuiltinNode* nodes;
  size_t nodeCount;
};

constexpr BuiltinNode kKernelNodes[] = {{"/proc/kmsg", nullptr, nullptr, 0}};

constexpr BuiltinNode kChargeNodes[] = {
    {"DateTime", nullptr, "Time", 23},
    {"/sys/class/kq_power/coul/coul_data/gaugelog", "/sys/class/kq_power/coul/coul_data/gaugelog_head", nullptr, 0},
    {"/sys/class/kq_power/charger/charge_data/chargelog", "/sys/class/kq_power/charger/charge_data/chargelog_head",
     nullptr, 0},
};

constexpr BuiltinService kServices[] = {
    {"kmsglogcat", STYLE_MONITOR_NODE, 0, "/data/log/android_logs/kmsgcat-log", 4096, 25, CPU_SET_NONE, true,
     kKernelNodes, 1},
    {"chargelogcat", STYLE_POLL_NODE, 5, "/data/log/charge-log/charge-log", 4096, 20, CPU_SET_LITTLE, false,
     kChargeNodes, 3},
};

/// Copies `text`, which may be absent. False: there was a text but no memory.
bool CopyOptional(const char* text, char** copy) {
  if (text == nullptr) {
    return true;
  }
  *copy = CopyText(text);
  return *copy != nullptr;
}

/// Appends copies of `count` nodes to `group`. False: no memory; what was appended belongs to the group.
bool AddNodes(const BuiltinNode* nodes, size_t count, QuilcatGroup_t* group) {
  for (size_t i = 0; i < count; ++i) {
    auto* set = AppendInput<QuilcatInputNodeSet_t>(group);
    if (set == nullptr) {
      return false;
    }
    set->width = nodes[i].width;
    if (!CopyOptional(nodes[i].data_path, &set->data_path) || !CopyOptional(nodes[i].title_path, &set->title_path) ||
        !CopyOptional(nodes[i].title, &set->title)) {
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
  group->polling_interval = service.polling_interval;
  group->info = info;
  if (!AddNodes(service.nodes, service.nodeCount, group)) {
    return false;
  }
  group->output_file_path = CopyText(service.output_file_path);
  if (group->output_file_path == nullptr) {
    return false;
  }
  info->rotate_size_kbytes = service.rotate_size_kbytes;
  info->maxCompressdFiles = service.maxCompressdFiles;
  info->cpu_set = service.cpu_set;
  if (service.modeFollowsDevice) {
    info->writeMode = WriteModeOfDevice();
  }
  info->name = CopyText(service.name);
  return info->name != nullptr;
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
    return 1;
  }
  return 1;
}
