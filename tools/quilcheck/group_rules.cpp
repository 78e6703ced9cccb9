// What the daemon makes of a service and its groups.

#include "collect/column_format.h"
#include "config/records.h"
#include "logfile/file_names.h"
#include "quilcheck/document.h"
#include "quilcheck/report.h"
#include "quilcheck/rules.h"

using namespace QuilCommon;

namespace Quilcheck {

namespace {

constexpr size_t kMostFiles = FileNames::kIndexes;
constexpr char kCosts[] = ": the service is invalid and its process idles";

std::string Text(const char* text) {
  return text != nullptr ? text : "";
}

bool HasAttribute(const xmlNode* element, const char* name) {
  return element != nullptr && AttributeOf(element, name).has_value();
}

const xmlNode* ChildOrSelf(const xmlNode* element, const char* name) {
  const xmlNode* child = ChildOf(element, name);
  return child != nullptr ? child : element;
}

/// The last child of that name, which is the one with an effect; without any, the element itself.
const xmlNode* SettingOf(const xmlNode* element, const char* name) {
  const xmlNode* last = element;
  for (const xmlNode* child = element->children; child != nullptr; child = child->next) {
    last = IsElement(child, name) ? child : last;
  }
  return last;
}

/// What a group needs but lacks; null when nothing is missing.
const char* MissingInput(const GroupReading& group) {
  const bool isEmpty = group.record->input == nullptr;
  switch (InputKindOf(group.record->style)) {
    case INPUT_NONE:
      return "a style (logStyle value)";
    case INPUT_NODE_SETS:
      return isEmpty ? "an inputNodeSet" : nullptr;
    case INPUT_DIRECTORY:
      return isEmpty ? "an inputDirSet" : nullptr;
    case INPUT_COMMANDS:
      return isEmpty ? "an inputCmdSet" : nullptr;
  }
  return nullptr;
}

/// Checks one service; its methods are the rules.
class ServiceRules {
 public:
  ServiceRules(const ServiceReading& reading, Findings* list) : service(reading), findings(list) {}

  void CheckSettings() const;
  void CheckGroups() const;

 private:
  void CheckRotationSize() const;
  void CheckFiles() const;
  void CheckGroup(const GroupReading& group) const;
  void CheckValidity(const GroupReading& group) const;
  void CheckInputs(const GroupReading& group) const;
  void CheckDropped(const GroupReading& group) const;
  void CheckStyle(const GroupReading& group) const;
  void CheckStream(const GroupReading& group) const;
  void CheckPoll(const GroupReading& group) const;
  void CheckWidth(const NodeSetReading& set) const;
  void CheckHeadings(const GroupReading& group) const;
  void WithoutEffect(const xmlNode* element, const char* name, const std::string& why) const;

  const ServiceReading& service;
  Findings* const findings;
};

void ServiceRules::CheckSettings() const {
  if (service.record->rotate_size_kbytes == 0) {
    findings->Add(SettingOf(service.element, "logRotateSizeKBytes"), "rotation-never",
                  "logRotateSizeKBytes is 0 or missing: files grow until the disk is full");
  }
  CheckRotationSize();
  CheckFiles();
  if (service.record->empty_files == EMPTY_FILES_REMOVE && service.record->writeMode != WRITE_MMAP) {
    findings->Add(SettingOf(service.element, "emptyFiles"), "no-effect", "emptyFiles has no effect in factory mode");
  }
  if (service.record->cpu_set == CPU_SET_BIG) {
    findings->Add(SettingOf(service.element, "cpuSets"), "no-effect", "cpuSets big has no effect: it binds nothing");
  }
  if (service.groups.empty()) {
    findings->Add(service.element, "invalid", "service " + Quoted(service.name) + " has no quilcatGroup" + kCosts);
  }
}

void ServiceRules::CheckRotationSize() const {
  const size_t size = service.record->rotate_size_kbytes, gigabyte = size_t{1} << 20;
  if (size >= gigabyte) {
    const bool isTooLarge = service.record->writeMode == WRITE_MMAP && size > ConfigGrammar::kMostMappedKilobytes;
    findings->Add(SettingOf(service.element, "logRotateSizeKBytes"), "rotation-large",
                  "logRotateSizeKBytes counts KiB: files grow to " + std::to_string(size / gigabyte) + " GiB" +
                      (isTooLarge ? ", more than the 2 GiB that a file can have" : "") +
                      (size % 1024 == 0 ? "; did you mean " + std::to_string(size / 1024) + '?' : ""));
  }
}

void ServiceRules::CheckFiles() const {
  const xmlNode* setting = SettingOf(service.element, "maxCompressdFiles");
  const size_t files = service.record->maxCompressdFiles;
  const bool isMapped = service.record->writeMode == WRITE_MMAP;
  if (files == 0) {
    findings->Add(
        setting, "files-none",
        std::string("maxCompressdFiles is 0 or missing: ") +
            (isMapped ? "no log is kept at a rotation" : "five rotated files are kept, and no archive is made"));
  } else if (isMapped && files > ConfigGrammar::kMostOrderedFiles) {
    findings->Add(setting, "files-many",
                  std::string("maxCompressdFiles is above 998: with a file of each index a start takes 000 for the "
                              "oldest, and deletes the newest first") +
                      (files > kMostFiles ? "; the daemon takes 1000" : ""));
  } else if (files > kMostFiles) {
    findings->Add(setting, "files-many", "maxCompressdFiles is above 1000: the daemon takes 1000");
  }
}

void ServiceRules::CheckGroups() const {
  bool collects = false;
  for (const GroupReading& group : service.groups) {
    CheckGroup(group);
    collects = collects || group.Streams() || group.Polls();
  }
  if (service.valid && !collects) {
    findings->Add(
        service.element, "collects-nothing",
        "service " + Quoted(service.name) + " collects nothing: of its styles neither streams nor polls a node");
  }
}

void ServiceRules::CheckGroup(const GroupReading& group) const {
  CheckValidity(group);
  CheckInputs(group);
  CheckDropped(group);
  CheckStyle(group);
  if (group.Streams()) {
    CheckStream(group);
  } else if (group.Polls()) {
    CheckPoll(group);
  }
}

void ServiceRules::CheckValidity(const GroupReading& group) const {
  if (group.record->output_file_path == nullptr) {
    findings->Add(group.element, "invalid", std::string("group without outputFilePath") + kCosts);
  }
  const char* missing = MissingInput(group);
  if (missing != nullptr) {
    findings->Add(group.element, "invalid", std::string("group without ") + missing + kCosts);
  }
}

void ServiceRules::CheckInputs(const GroupReading& group) const {
  for (const NodeSetReading& set : group.nodeSets) {
    if (set.record->data_path == nullptr && set.record->alter_data_path == nullptr) {
      findings->Add(set.element, "invalid",
                    std::string("inputNodeSet with neither dataPath nor alterdataPath") + kCosts);
    }
  }
  for (const TextReading& text : group.texts) {
    if (text.record->str == nullptr) {
      const bool isDirectory = group.record->style == STYLE_MONITOR_DIR;
      findings->Add(text.element, "invalid",
                    std::string(isDirectory ? "inputDirSet without an inputDirPath"
                                            : "inputCmdSet whose first command has no text") +
                        kCosts);
    }
  }
}

void ServiceRules::CheckDropped(const GroupReading& group) const {
  for (const DroppedInput& input : group.dropped) {
    const std::string name = NameOf(input.element);
    std::string why = " does not fit the style of its group";
    if (input.isEarly) {
      why = " comes before the logStyle of its group";
    } else if (input.style == STYLE_NONE) {
      why = " comes before a style that the daemon knows";
    } else if (input.style == STYLE_MONITOR_DIR && name == "inputDirSet") {
      why = " is the second of its group";
    }
    findings->Add(input.element, "input-dropped", name + why + ": the daemon passes over it");
  }
}

void ServiceRules::CheckStyle(const GroupReading& group) const {
  const std::string keyword = group.style != nullptr ? AttributeOf(group.style, "value").value_or("") : "";
  if (group.record->input != nullptr && !keyword.empty() && keyword != StyleName(group)) {
    findings->Add(
        group.style, "style-late",
        "logStyle value=" + Quoted(keyword) + " comes after inputs of its group: the daemon keeps " + StyleName(group));
  }
  if (group.record->style == STYLE_MONITOR_DIR || group.record->style == STYLE_POLL_CMD) {
    findings->Add(group.style, "group-idle",
                  "a group of style " + StyleName(group) + " collects nothing: its log stays empty");
  }
  if (!group.Polls()) {
    WithoutEffect(group.style, "interval", "only poll_node has one");
  }
  if (!group.Streams()) {
    WithoutEffect(group.style, "onWriteFailure", "it is for monitor_node");
  }
  const bool isShell =
      group.Streams() && !group.nodeSets.empty() && Text(group.nodeSets.front().record->data_path) == "/dev/cshell_log";
  if (!group.Polls() && !isShell) {
    WithoutEffect(group.style, "failureRetry", "of streams only that of /dev/cshell_log counts failures");
  }
}

void ServiceRules::WithoutEffect(const xmlNode* element, const char* name, const std::string& why) const {
  if (HasAttribute(element, name)) {
    findings->Add(element, "no-effect", NameOf(element) + ' ' + name + " has no effect: " + why);
  }
}

void ServiceRules::CheckStream(const GroupReading& group) const {
  if (group.nodeSets.empty()) {
    return;
  }
  const NodeSetReading& first = group.nodeSets.front();
  const std::string path = Text(first.record->data_path);
  if (first.record->data_path == nullptr && first.record->alter_data_path != nullptr) {
    findings->Add(first.element, "stream-path",
                  "a stream reads dataPath only: this group collects nothing; did you mean dataPath?");
  }
  if (!SampleTime(path).empty()) {
    findings->Add(ChildOrSelf(first.element, "dataPath"), "stream-path",
                  "dataPath value=" + Quoted(path) + " is no path: only poll_node has time columns");
  }
  for (size_t i = 1; i < group.nodeSets.size(); ++i) {
    findings->Add(group.nodeSets[i].element, "no-effect",
                  "a stream reads its group's first inputNodeSet only: this one has no effect");
  }
  for (const char* name : {"titlePath", "title", "width", "alterdataPath"}) {
    const xmlNode* child = ChildOf(first.element, name);
    if (child != nullptr && first.record->data_path != nullptr) {
      findings->Add(child, "no-effect", std::string(name) + " has no effect: a stream has no columns");
    }
  }
}

void ServiceRules::CheckPoll(const GroupReading& group) const {
  if (group.record->polling_interval == 0) {
    findings->Add(group.style, "poll-fast", "logStyle interval is 0 or missing: the daemon polls without a pause");
  }
  for (const NodeSetReading& set : group.nodeSets) {
    if (set.record->data_path != nullptr && set.record->alter_data_path != nullptr) {
      findings->Add(ChildOrSelf(set.element, "alterdataPath"), "no-effect",
                    "alterdataPath has no effect beside a dataPath");
    }
    if (set.record->title != nullptr && set.record->title_path != nullptr) {
      findings->Add(ChildOrSelf(set.element, "titlePath"), "no-effect", "titlePath has no effect beside a title");
    }
    CheckWidth(set);
  }
  CheckHeadings(group);
}

void ServiceRules::CheckWidth(const NodeSetReading& set) const {
  const size_t width = set.record->width;
  if (width == 0) {
    return;
  }
  const xmlNode* child = ChildOrSelf(set.element, "width");
  const std::string path = Text(set.record->data_path);
  const std::string time = SampleTime(path);
  const std::string sample = time.empty() ? ColumnFormat::kReadFailure : time;
  if (width < sample.size() && sample.front() != '\n') {  // a stamp that begins a new line need not line up
    findings->Add(child, "width",
                  "width " + std::to_string(width) + " is too narrow for " +
                      (time.empty() ? Quoted(sample) : "the date") + ", which has " + std::to_string(sample.size()) +
                      " characters: it moves the columns behind it");
  }
  if (width > ColumnFormat::kWidest) {
    const std::string most = std::to_string(ColumnFormat::kWidest);
    findings->Add(child, "width",
        "width " + std::to_string(width) + " is more than " + most + ": the daemon writes " + most + " characters");
  }
  const std::string title = Text(set.record->title);
  if (width < title.size()) {
    findings->Add(child, "headings",
                  "width " + std::to_string(width) + " is too narrow for the title " + Quoted(title) +
                      ": heading and columns do not line up");
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
      findings->Add(set.element, "headings",
                    "a column without a title before one that has it: heading and columns do not line up");
    } else if (set.record->title != nullptr && set.record->width == 0) {
      findings->Add(set.element, "headings",
                    "a column with a title and no width before another one: heading and columns do not line up");
    }
  }
}

}  // namespace

void CheckService(const ServiceReading& service, Findings* findings) {
  const ServiceRules rules(service, findings);
  rules.CheckSettings();
  rules.CheckGroups();
}

}  // namespace Quilcheck
