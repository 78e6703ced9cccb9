// The report for build scripts.

#include "common/json_text.h"
#include "config/records.h"
#include "quilcheck/report.h"

using namespace QuilCommon;

namespace Quilcheck {

namespace {

std::string Text(const std::string& text) {
  std::string json;
  AppendJsonString(json, text.data(), text.size());
  return json;
}

std::string Text(const char* text) {
  return text != nullptr ? Text(std::string(text)) : "null";
}

/// A member of an object; `value` is JSON.
std::string Member(const char* name, const std::string& value) {
  return Text(name) + ": " + value;
}

/// An array with one item on each line.
template <typename Items, typename Form>
std::string Array(const Items& items, const std::string& indent, Form form) {
  std::string result;
  for (const auto& item : items) {
    result += (result.empty() ? "\n" : ",\n") + indent + "  " + form(item);
  }
  return '[' + result + (result.empty() ? "]" : '\n' + indent + ']');
}

std::string FindingObject(const Finding& finding) {
  return '{' + Member("line", std::to_string(finding.line)) + ", " + Member("id", Text(finding.id)) + ", " +
         Member("severity", Text(NameOf(finding.severity))) + ", " +
         Member("service", finding.service.empty() ? "null" : Text(finding.service)) + ", " +
         Member("text", Text(finding.text)) + '}';
}

std::string NodeObject(const NodeSetReading& set) {
  std::vector<const char*> alternatives;
  for (const QuilcatStrList_t* path = set.record->alter_data_path; path != nullptr; path = path->next) {
    alternatives.push_back(path->str);
  }
  return '{' + Member("dataPath", Text(set.record->data_path)) + ", " +
         Member("alterdataPath", Array(alternatives, "        ", [](const char* path) { return Text(path); })) + ", " +
         Member("title", Text(set.record->title)) + ", " + Member("titlePath", Text(set.record->title_path)) + ", " +
         Member("width", std::to_string(set.record->width)) + '}';
}

std::string GroupObject(const GroupReading& group) {
  return '{' + Member("line", std::to_string(LineOf(group.element))) + ", " + Member("style", Text(StyleName(group))) +
         ", " + Member("interval", std::to_string(group.record->polling_interval)) + ", " +
         Member("failureRetry", std::to_string(group.record->failureRetry)) + ", " +
         Member("onWriteFailure", group.record->on_write_failure == WRITE_FAILURE_RETRY ? "\"retry\"" : "null") + ", " +
         Member("output", Text(group.record->output_file_path)) + ", " +
         Member("headingRow", group.Polls() ? Text(HeadingRow(group)) : "null") + ",\n      " +
         Member("nodes", Array(group.nodeSets, "      ", NodeObject)) + '}';
}

std::string ServiceObject(const ServiceReading& service) {
  const bool bounded = service.record->rotate_size_kbytes != 0;
  return '{' + Member("name", Text(service.name)) + ", " + Member("line", std::to_string(LineOf(service.element))) +
         ", " + Member("valid", service.valid ? "true" : "false") + ", " +
         Member("writeMode", Text(WriteModeName(service))) + ", " + Member("whyWriteMode", Text(service.whyWriteMode)) +
         ",\n    " + Member("rotateKilobytes", std::to_string(service.record->rotate_size_kbytes)) + ", " +
         Member("filesKept", std::to_string(FilesKept(service))) + ", " +
         Member("mostKilobytes", bounded ? std::to_string(MostKilobytes(service)) : "null") + ", " +
         Member("syncSeconds", std::to_string(service.record->sync_seconds)) + ", " +
         Member("emptyFiles", service.record->empty_files == EMPTY_FILES_REMOVE ? "\"remove\"" : "null") + ", " +
         Member("cpuSet", std::to_string(service.record->cpu_set)) + ",\n    " +
         Member("groups", Array(service.groups, "    ", GroupObject)) + '}';
}

}  // namespace

std::string Json(const Report& report, bool withServices) {
  std::string text = "{\n" + Member("file", Text(report.file)) + ",\n" +
                     Member("errors", std::to_string(report.findings.Count(Severity::Error))) + ",\n" +
                     Member("warnings", std::to_string(report.findings.Count(Severity::Warning))) + ",\n" +
                     Member("findings", Array(report.findings.All(), "", FindingObject));
  if (withServices) {
    text += ",\n" + Member("services", Array(report.services, "", ServiceObject));
  }
  return text + "\n}\n";
}

}  // namespace Quilcheck
