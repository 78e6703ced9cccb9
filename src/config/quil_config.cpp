#include "config/quil_config.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include "config/records.h"
#include "safestr/safestr.h"

using namespace QuilCommon;

namespace {

const char* OrNull(const char* text) {
  return text != nullptr ? text : "(null)";
}

/// Prints a setting that not every service has.
void PrintIfSet(FILE* to, const char* name, size_t value) {
  if (value != 0) {
    fprintf(to, "%-18s: %zu\n", name, value);
  }
}

void PrintTexts(FILE* to, const char* name, const QuilcatStrList_t* entry) {
  for (; entry != nullptr; entry = entry->next) {
    fprintf(to, "%-18s: %s\n", name, OrNull(entry->str));
  }
}

void PrintNodeSets(FILE* to, const QuilcatInputNodeSet_t* set) {
  for (; set != nullptr; set = set->next) {
    fprintf(to, "data_path         : %s\n", OrNull(set->data_path));
    fprintf(to, "title_path        : %s\n", OrNull(set->title_path));
    fprintf(to, "title             : %s\n", OrNull(set->title));
    fprintf(to, "width             : %zu\n", set->width);
    PrintTexts(to, "alter_data_path", set->alter_data_path);
  }
}

void PrintInputs(FILE* to, const QuilcatGroup_t& group) {
  switch (InputKindOf(group.style)) {
    case INPUT_NONE:
      break;
    case INPUT_NODE_SETS:
      PrintNodeSets(to, NodeSets(&group));
      break;
    case INPUT_DIRECTORY:
      if (const QuilcatStrList_t* directory = StringList(&group); directory != nullptr) {
        fprintf(to, "inputDirPath      : %s\n", OrNull(directory->str));
        PrintTexts(to, "pickNode", directory->next);
      }
      break;
    case INPUT_COMMANDS:
      PrintTexts(to, "command", StringList(&group));
      break;
  }
}

void PrintGroup(FILE* to, const QuilcatGroup_t& group) {
  fprintf(to, "~~~~~~ QuilcatGroup begin ~~~~~~\n");
  fprintf(to, "polling_interval  : %zu\n", group.polling_interval);
  fprintf(to, "failureRetry      : %zu\n", group.failureRetry);
  fprintf(to, "style             : %zu\n", static_cast<size_t>(group.style));
  fprintf(to, "output_file_path  : %s\n", OrNull(group.output_file_path));
  fprintf(to, "info              : 0x%lx\n", static_cast<unsigned long>(reinterpret_cast<uintptr_t>(group.info)));
  PrintIfSet(to, "on_write_failure", static_cast<size_t>(group.on_write_failure));
  PrintInputs(to, group);
  fprintf(to, "~~~~~~ QuilcatGroup end ~~~~~~~~\n");
}

bool InputsAreValid(const QuilcatGroup_t& group) {
  switch (InputKindOf(group.style)) {
    case INPUT_NONE:
      return false;
    case INPUT_NODE_SETS:
      for (const QuilcatInputNodeSet_t* set = NodeSets(&group); set != nullptr; set = set->next) {
        if (set->data_path == nullptr && set->alter_data_path == nullptr) {
          return false;
        }
      }
      break;
    case INPUT_DIRECTORY:
      return group.input != nullptr && StringList(&group)->str != nullptr;
    case INPUT_COMMANDS:
      for (const QuilcatStrList_t* command = StringList(&group); command != nullptr; command = command->next) {
        if (command->str == nullptr) {
          return false;
        }
      }
      break;
  }
  return group.input != nullptr;
}

/// Releases each record of a chain by `release`.
template <typename Record>
void FreeChain(Record* record, void (*release)(Record*)) {
  while (record != nullptr) {
    Record* next = record->next;
    release(record);
    record = next;
  }
}

void FreeText(QuilcatStrList_t* entry) {
  free(entry->str);
  free(entry);
}

void FreeInputs(QuilcatGroup_t* group) {
  switch (InputKindOf(group->style)) {
    case INPUT_NONE:
      break;
    case INPUT_NODE_SETS:
      FreeChain(NodeSets(group), QuilConfig::free_inputNodeSet);
      break;
    case INPUT_DIRECTORY:
    case INPUT_COMMANDS:
      FreeChain(StringList(group), FreeText);
      break;
  }
}

}  // namespace

int QuilConfig::checkQuilcatInfo(const QuilcatInfo_t* info) {
  if (info->name == nullptr || info->group_list == nullptr) {
    return 1;
  }
  for (const QuilcatGroup_t* group = info->group_list; group != nullptr; group = group->next) {
    if (group->output_file_path == nullptr || !InputsAreValid(*group)) {
      return 1;
    }
  }
  return 0;
}

void QuilConfig::printQuilcatInfo(QuilcatInfo_t* info, FILE* to) {
  fprintf(to, "------------- printQuilcatInfo begin -------------\n");
  fprintf(to, "name              : %s\n", OrNull(info->name));
  fprintf(to, "rotate_size_kbytes: %zu\n", info->rotate_size_kbytes);
  fprintf(to, "maxCompressdFiles : %zu\n", info->maxCompressdFiles);
  fprintf(to, "cpu_set           : %zu\n", static_cast<size_t>(info->cpu_set));
  fprintf(to, "writeMode         : %zu\n", static_cast<size_t>(info->writeMode));
  PrintIfSet(to, "sync_seconds", info->sync_seconds);
  PrintIfSet(to, "empty_files", static_cast<size_t>(info->empty_files));
  for (const QuilcatGroup_t* group = info->group_list; group != nullptr; group = group->next) {
    PrintGroup(to, *group);
  }
  fprintf(to, "------------- printQuilcatInfo end ---------------\n");
}

void QuilConfig::free_config_file(QuilcatInfo_t* info) {
  if (info == nullptr) {
    return;
  }
  free(info->name);
  FreeChain(info->group_list, free_logcatGroup);
  memset_s(info, sizeof *info, 0, sizeof *info);
}

void QuilConfig::free_logcatGroup(QuilcatGroup_t* group) {
  if (group == nullptr) {
    return;
  }
  group->info = nullptr;
  FreeInputs(group);
  free(group->output_file_path);
  free(group);
}

void QuilConfig::free_inputNodeSet(QuilcatInputNodeSet_t* set) {
  if (set == nullptr) {
    return;
  }
  free(set->data_path);
  free(set->title_path);
  free(set->title);
  FreeChain(set->alter_data_path, FreeText);
  free(set);
}
