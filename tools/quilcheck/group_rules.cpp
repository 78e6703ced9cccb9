// What the daemon makes of a service and its groups.

#include <string.h>

#include "collect/column_format.h"
#include "logfile/file_names.h"
#include "quilcheck/report.h"
#include "quilcheck/rules.h"

using namespace QuilCommon;

namespace Quilcheck {

namespace {

constexpr size_t kMostFiles = FileNames::kIndexes;

const xmlNode* ChildOrSelf(const xmlNode* element, const char* name) {
  const xmlNode* child = ChildOf(element, name);
  return child != nullptr ? child : element;
}

/// What a group needs but lacks; null when nothing is missing.
const char* MissingInput(const GroupReading& group) {
  const InputKind kind = InputKindOf(group.record->style);
  const ConfigGrammar::Element* element = ConfigGrammar::kElements;
  while (kind != INPUT_NONE && element->brings != kind) {
    ++element;
  }
  return kind == INPUT_NONE ? "a style (logStyle value)" : group.record->input == nullptr ? element->name : nullptr;
}

/// Checks one service; its methods are the rules.
class ServiceRules {
 public:
  ServiceRules(const ServiceReading& reading, Findings* list) : service(reading), findings(list) {}

  void CheckSettings() const;
  void CheckFiles() const;
  void CheckGroups() const;

 private:
  void CheckGroup(const GroupReading& group) const;
  void CheckInputs(const GroupReading& group) const;
  void CheckDropped(const GroupReading& group) const;
  void CheckStyle(const GroupReading& group) const;
  void CheckStream(const GroupReading& group) const;
  void CheckPoll(const GroupReading& group) const;
  void CheckWidth(const NodeSetReading& set) const;
  void CheckHeadings(const GroupReading& group) const;

  void Add(const xmlNode* element, const char* id, const std::string& what, const std::string& hint = "") const {
    findings->Add(element, id, what, hint);
  }
  /// Of the last child of that name, which is the one with an effect; without any, of the service itself.
  void AddToSetting(const char* name, const char* id, const std::string& what, const std::string& hint = "") const {
    const xmlNode* last = service.element;
    for (const xmlNode* child = service.element->children; child != nullptr; child = child->next) {
      last = IsElement(child, name) ? child : last;
    }
    Add(last, id, name + what, hint);
  }
  void AddIfPresent(const xmlNode* element, const char* attribute, const std::string& why) const {
    if (element != nullptr && AttributeOf(element, attribute).has_value()) {
      Add(element, "no-effect", NameOf(element) + ' ' + attribute + " has no effect: " + why);
    }
  }

  const ServiceReading& service;
  Findings* const findings;
};

void ServiceRules::CheckSettings() const {
  const size_t size = service.record->rotate_size_kbytes, gigabyte = size_t{1} << 20;
  const bool isMapped = service.record->writeMode == WRITE_MMAP;
  if (size == 0) {
    AddToSetting("logRotateSizeKBytes", "rotation-never", " is 0 or missing");
  } else if (size >= gigabyte) {
    AddToSetting("logRotateSizeKBytes", "rotation-large",
                 " counts KiB: files grow to " + std::to_string(size / gigabyte) + " GiB" +
                     (isMapped && size > ConfigGrammar::kMostMappedKilobytes ? ", above the 2 GiB of a file" : ""),
                 size % 1024 == 0 ? "; did you mean " + std::to_string(size / 1024) + '?' : "");
  }
  if (service.record->empty_files == EMPTY_FILES_REMOVE && !isMapped) {
    AddToSetting("emptyFiles", "no-effect", " has no effect in factory mode");
  }
  if (service.record->cpu_set == CPU_SET_BIG) {
    AddToSetting("cpuSets", "no-effect", " big has no effect: it binds nothing");
  }
}

void ServiceRules::CheckFiles() const {
  const size_t files = service.record->maxCompressdFiles;
  const bool isMapped = service.record->writeMode == WRITE_MMAP;
  if (files == 0) {
    AddToSetting("maxCompressdFiles", "files-none",
                 std::string(" is 0 or missing: ") +
                     (isMapped ? "no log is kept at a rotation" : "five files are kept, and no archive is made"));
  } else if (isMapped && files > ConfigGrammar::kMostOrderedFiles) {
    AddToSetting("maxCompressdFiles", "files-many",
                 " is above 998: with a file of each index a start takes 000 for the oldest, deletes the newest first");
  } else if (files > kMostFiles) {
    AddToSetting("maxCompressdFiles", "files-many", " is above 1000: the daemon takes 1000");
  }
}

void ServiceRules::CheckGroups() const {
  bool collects = false;
  for (const GroupReading& group : service.groups) {
    CheckGroup(group);
    collects = collects || group.Streams() || group.Polls();
  }
  if (service.groups.empty()) {
    Add(service.element, "invalid", "service " + Quoted(service.name) + " has no quilcatGroup");
  } else if (service.valid && !collects) {
    Add(service.element, "collects-nothing", "service " + Quoted(service.name) + " collects nothing");
  }
}

void ServiceRules::CheckGroup(const GroupReading& group) const {
  if (group.record->output_file_path == nullptr) {
    Add(group.element, "invalid", "group without outputFilePath");
  }
  if (const char* missing = MissingInput(group); missing != nullptr) {
    Add(group.element, "invalid", std::string("group without ") + missing);
  }
  CheckInputs(group);
  CheckDropped(group);
  CheckStyle(group);
  if (group.Streams() && !group.nodeSets.empty()) {
    CheckStream(group);
  } else if (group.Polls()) {
    CheckPoll(group);
  }
}

void ServiceRules::CheckInputs(const GroupReading& group) const {
  for (const NodeSetReading& set : group.nodeSets) {
    if (set.record->data_path == nullptr && set.record->alter_data_path == nullptr) {
      Add(set.element, "invalid", "inputNodeSet with neither dataPath nor alterdataPath");
    }
  }
  for (const TextReading& text : group.texts) {
    if (text.record->str == nullptr) {
      const bool isDirectory = group.record->style == STYLE_MONITOR_DIR;
      Add(text.element, "invalid", isDirectory ? "inputDirSet without an inputDirPath" : "inputCmdSet without a text");
    }
  }
}

void ServiceRules::CheckDropped(const GroupReading& group) const {
  for (const DroppedInput& input : group.dropped) {
    const std::string name = NameOf(input.element);
    const bool isSecond = input.style == STYLE_MONITOR_DIR && name == "inputDirSet";
    Add(input.element, "input-dropped",
        name + (input.isEarly               ? " comes before the logStyle of its group"
                : input.style == STYLE_NONE ? " comes before a style that the daemon knows"
                : isSecond                  ? " is the second of its group"
                                            : " does not fit the style of its group"));
  }
}

void ServiceRules::CheckStyle(const GroupReading& group) const {
  const std::string keyword = group.style != nullptr ? AttributeOf(group.style, "value").value_or("") : "";
  if (group.record->input != nullptr && !keyword.empty() && keyword != StyleName(group)) {
    Add(group.style, "style-late",
        "logStyle value=" + Quoted(keyword) + " comes after inputs of its group: the daemon keeps " + StyleName(group));
  }
  if (group.record->style == STYLE_MONITOR_DIR || group.record->style == STYLE_POLL_CMD) {
    Add(group.style, "group-idle", "a group of style " + StyleName(group) + " collects nothing");
  }
  if (!group.Streams()) {
    AddIfPresent(group.style, "onWriteFailure", "it is for monitor_node");
  }
  if (!group.Polls()) {
    AddIfPresent(group.style, "interval", "only poll_node has one");
    const char* path = group.Streams() && !group.nodeSets.empty() ? group.nodeSets[0].record->data_path : nullptr;
    if (path == nullptr || path != std::string("/dev/cshell_log")) {
      AddIfPresent(group.style, "failureRetry", "of streams only that of /dev/cshell_log counts failures");
    }
  }
}

void ServiceRules::CheckStream(const GroupReading& group) const {
  const NodeSetReading& first = group.nodeSets.front();
  const char* path = first.record->data_path;
  if (path == nullptr && first.record->alter_data_path != nullptr) {
    Add(first.element, "stream-path", "a stream reads dataPath only", "; did you mean dataPath?");
  } else if (path != nullptr && !SampleTime(path).empty()) {
    Add(ChildOrSelf(first.element, "dataPath"), "stream-path",
        "dataPath value=" + Quoted(path) + " is no path: only poll_node has time columns");
  }
  for (size_t i = 1; i < group.nodeSets.size(); ++i) {
    Add(group.nodeSets[i].element, "no-effect",
        "inputNodeSet has no effect: a stream reads the first one of its group");
  }
  for (const char* name : {"titlePath", "title", "width", "alterdataPath"}) {
    const xmlNode* child = ChildOf(first.element, name);
    if (child != nullptr && path != nullptr) {
      Add(child, "no-effect", std::string(name) + " has no effect: a stream has no columns");
    }
  }
}

void ServiceRules::CheckPoll(const GroupReading& group) const {
  if (group.record->polling_interval == 0) {
    Add(group.style, "poll-fast", "logStyle interval is 0 or missing");
  }
  for (const NodeSetReading& set : group.nodeSets) {
    if (set.record->data_path != nullptr && set.record->alter_data_path != nullptr) {
      Add(ChildOrSelf(set.element, "alterdataPath"), "no-effect", "alterdataPath has no effect beside a dataPath");
    }
    if (set.record->title != nullptr && set.record->title_path != nullptr) {
      Add(ChildOrSelf(set.element, "titlePath"), "no-effect", "titlePath has no effect beside a title");
    }
    if (set.record->width != 0) {
      CheckWidth(set);
    }
  }
  CheckHeadings(group);
}

void ServiceRules::CheckWidth(const NodeSetReading& set) const {
  const size_t width = set.record->width;
  const std::string what = "width " + std::to_string(width) + " is ";
  const std::string time = set.record->data_path != nullptr ? SampleTime(set.record->data_path) : "";
  const std::string sample = time.empty() ? ColumnFormat::kReadFailure : time;
  const xmlNode* child = ChildOrSelf(set.element, "width");
  if (width < sample.size() && sample.front() != '\n') {  // a stamp that begins a new line need not line up
    Add(child, "width",
        what + "too narrow for " + (time.empty() ? Quoted(sample) : "the date") + ", which has " +
            std::to_string(sample.size()) + " characters: it moves the columns after it");
  }
  if (width > ColumnFormat::kWidest) {
    Add(child, "width", what + "more than the " + std::to_string(ColumnFormat::kWidest) + " that the daemon writes");
  }
  if (set.record->title != nullptr && width < strlen(set.record->title)) {
    Add(child, "headings", what + "too narrow for the title " + Quoted(set.record->title));
  }
}

void ServiceRules::CheckHeadings(const GroupReading& group) const {
  // The heading row skips a column without a title, and pads a title only to the width of its column.
  const auto hasHeading = [](const NodeSetReading& set) {
    return set.record->title != nullptr || set.record->title_path != nullptr;
  };
  size_t headed = group.nodeSets.size();
  while (headed > 0 && !hasHeading(group.nodeSets[headed - 1])) {
    --headed;
  }
  for (size_t i = 0; i + 1 < headed; ++i) {
    const NodeSetReading& set = group.nodeSets[i];
    if (!hasHeading(set)) {
      Add(set.element, "headings", "a column without a title before one that has it");
    } else if (set.record->title != nullptr && set.record->width == 0) {
      Add(set.element, "headings", "a column with a title and no width before another one");
    }
  }
}

}  // namespace

void CheckService(const ServiceReading& service, Findings* findings) {
  const ServiceRules rules(service, findings);
  rules.CheckSettings();
  rules.CheckFiles();
  rules.CheckGroups();
}

}  // namespace Quilcheck
