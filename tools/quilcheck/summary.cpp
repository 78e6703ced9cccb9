// How a service runs, for a person to read.

#include <stdarg.h>
#include <stdio.h>

#include <algorithm>

#include "collect/column_format.h"
#include "config/records.h"
#include "logfile/file_names.h"
#include "mmaplog/log_format.h"
#include "quilcheck/report.h"
#include "quilcheck/rules.h"

using namespace QuilCommon;

namespace Quilcheck {

namespace {

// KiB that a file in mmap mode takes while it is open, and after its process was killed.
constexpr unsigned long long kLeastMapped = LogFormat::kSegmentSize / 1024;

__attribute__((format(printf, 1, 2))) std::string Formatted(const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

std::string Row(const char* name, const std::string& text) {
  return Formatted("  %-14s", name) + Printable(text) + '\n';
}

std::string BaseName(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

/// What a node set reads: its path, or its alternatives.
std::string NodeText(const QuilcatInputNodeSet_t& set) {
  if (set.data_path != nullptr) {
    return set.data_path;
  }
  std::string text;
  for (const QuilcatStrList_t* path = set.alter_data_path; path != nullptr && path->str != nullptr; path = path->next) {
    text += (text.empty() ? "" : " or ") + std::string(path->str);
  }
  return text.empty() ? "(nothing)" : text;
}

std::string Heading(const QuilcatInputNodeSet_t& set) {
  if (set.title != nullptr) {
    return set.title;
  }
  return set.title_path != nullptr ? '<' + BaseName(set.title_path) + '>' : "";
}

std::string Value(const QuilcatInputNodeSet_t& set) {
  const std::string time = SampleTime(set.data_path != nullptr ? set.data_path : "");
  return !time.empty() ? time : '<' + BaseName(NodeText(set)) + '>';
}

/// The text as a column, padded with blanks to the width.
std::string Column(std::string text, size_t width) {
  text.resize(std::max(text.size(), std::min(width, ColumnFormat::kWidest)), ' ');
  return text;
}

std::string Kept(const ServiceReading& service) {
  const size_t files = FilesKept(service);
  if (service.record->writeMode == WRITE_MMAP) {
    return files == 0 ? "none: each file goes when the next begins" : std::to_string(files) + " files of each output";
  }
  return files == 0 ? "the live file, 5 rotated ones, no archives"
                    : "the live file, 4 rotated ones, " + std::to_string(files) + " archives of 5 files";
}

std::string MostDisk(const ServiceReading& service) {
  if (service.record->rotate_size_kbytes == 0) {
    return "without bound";
  }
  const bool mapped = service.record->writeMode == WRITE_MMAP;
  const unsigned long long size = service.record->rotate_size_kbytes, files = FilesKept(service);
  const bool isLeast = mapped && size < kLeastMapped;
  const std::string sum = "(1 + " + std::to_string(files) + ')';
  return SizeText(MostKilobytes(service)) + " for each output: " +
         (mapped       ? sum
          : files == 0 ? "6"
                       : "5 x " + sum) +
         " x " + SizeText(isLeast ? kLeastMapped : size) +
         (isLeast  ? ", which a file takes while it is open"
          : mapped ? " of text, before it is compressed"
                   : " of text, before archives are compressed");
}

/// KiB of text that one output holds at least once it is full.
unsigned long long KeptKilobytes(const ServiceReading& service) {
  const unsigned long long size = service.record->rotate_size_kbytes, files = FilesKept(service);
  return service.record->writeMode == WRITE_MMAP ? files * size
                                                 : std::max(files, 1ULL) * FileNames::kFilesPerArchive * size;
}

/// How far back a full log reaches; empty when nobody knows.
std::string Reach(const ServiceReading& service, const GroupReading& group) {
  size_t row = 1;
  for (const NodeSetReading& set : group.nodeSets) {
    const bool isTime = set.record->data_path != nullptr && !SampleTime(set.record->data_path).empty();
    const std::string value = isTime ? Value(*set.record) : set.record->width == 0 ? ColumnFormat::kReadFailure : "";
    row += Column(value, set.record->width).size();
  }
  const double rowsADay = 86400.0 / static_cast<double>(group.record->polling_interval);
  const double bytesADay = group.Streams() ? 1e6 : rowsADay * static_cast<double>(row);
  const double days = static_cast<double>(KeptKilobytes(service)) * 1024 / bytesADay;
  if (days == 0 || !(group.Streams() || group.Polls())) {
    return "";
  }
  const std::string rate = group.Streams() ? "1 MB of text a day" : "rows of " + std::to_string(row) + " bytes";
  return Row("reaches",
             Formatted(days < 2 ? "%.1f hours" : "%.1f days", days < 2 ? days * 24 : days) + " back at " + rate);
}

std::string GroupTable(const GroupReading& group) {
  if (group.Streams()) {
    return group.nodeSets.empty() ? "" : Row("node", NodeText(*group.nodeSets.front().record));
  }
  if (!group.Polls()) {
    return Row("", "collects nothing");
  }
  std::string table = Formatted("  %6s %6s %6s  %s\n", "column", "begins", "width", "node, heading");
  size_t begin = 0;
  bool isKnown = true;
  size_t number = 0;
  for (const NodeSetReading& set : group.nodeSets) {
    const size_t width = set.record->width;
    const std::string heading = Heading(*set.record);
    table += Formatted("  %6zu %6s %6s  ", ++number, isKnown ? std::to_string(begin).c_str() : "-",
                       width != 0 ? std::to_string(width).c_str() : "-");
    table += Printable(NodeText(*set.record) + (heading.empty() ? "" : ", " + Quoted(heading))) + '\n';
    begin += width;
    isKnown = isKnown && width != 0;
  }
  return table + Row("heading row", HeadingRow(group)) + Row("row", SampleRow(group));
}

std::string GroupSummary(size_t number, const ServiceReading& service, const GroupReading& group) {
  std::string text = Formatted("  group %zu, %s", number, StyleName(group).c_str());
  if (group.Polls()) {
    const size_t interval = group.record->polling_interval;
    text += interval != 0 ? ", every " + std::to_string(interval) + " s" : ", without a pause";
  }
  if (group.record->failureRetry != 0) {
    text += ", " + std::to_string(group.record->failureRetry) + " failed reads";
  }
  if (group.Streams()) {
    const bool retries = group.record->on_write_failure == WRITE_FAILURE_RETRY;
    text += retries ? ", tries a failed read or write again" : ", ends at a failed read or write";
  }
  return text + '\n' + Row("output", group.Output()) + Reach(service, group) + GroupTable(group);
}

}  // namespace

std::string StyleName(const GroupReading& group) {
  const ConfigGrammar::Element* element = ConfigGrammar::Find("quilcatGroup", "logStyle");
  return group.record->style == STYLE_NONE ? "none" : Words(element->attributes[0].keywords)[group.record->style - 1];
}

std::string SampleTime(const std::string& path) {
  const bool isDate = path.rfind(ColumnFormat::kDateTime, 0) == 0;
  return isDate ? Formatted(ColumnFormat::kDateTimeForm, 2026, 1, 31, 23, 59, 59)
         : path.rfind(ColumnFormat::kCurrentTime, 0) == 0
             ? Formatted(ColumnFormat::kCurrentTimeForm, 2026, 1, 31, 23, 59, 59)
             : "";
}

std::string WriteModeName(const ServiceReading& service) {
  return service.record->writeMode == WRITE_MMAP ? "mmap" : "factory";
}

size_t FilesKept(const ServiceReading& service) {
  const size_t files = std::min<size_t>(service.record->maxCompressdFiles, FileNames::kIndexes);
  return service.record->writeMode == WRITE_MMAP ? files : FileNames::archivesFor(files);
}

unsigned long long MostKilobytes(const ServiceReading& service) {
  const unsigned long long size = service.record->rotate_size_kbytes;
  const size_t files = FilesKept(service);
  if (service.record->writeMode == WRITE_MMAP) {
    return (files + 1) * std::max(size, kLeastMapped);  // a start keeps that many besides its own new file
  }
  // Without archives: the live file and five rotated ones. With them: the rotated ones while they are being packed.
  return (files == 0 ? FileNames::kFilesPerArchive + 1 : FileNames::kFilesPerArchive * (files + 1)) * size;
}

unsigned long long TotalKilobytes(const Report& report) {
  unsigned long long total = 0;
  for (const ServiceReading& service : report.services) {
    for (const GroupReading& group : service.groups) {
      if (service.valid && HasUsableOutput(group)) {
        if (service.record->rotate_size_kbytes == 0) {
          return 0;
        }
        total += MostKilobytes(service);
      }
    }
  }
  return total;
}

std::string SizeText(unsigned long long kilobytes) {
  if (kilobytes >= 1024 && kilobytes % 1024 == 0) {
    return std::to_string(kilobytes / 1024) + " MiB";
  }
  return std::to_string(kilobytes) + " KiB";
}

std::string HeadingRow(const GroupReading& group) {
  std::string row;
  bool begun = false;
  for (const NodeSetReading& set : group.nodeSets) {
    begun = begun || set.record->title != nullptr || set.record->title_path != nullptr;
    const std::string heading = Heading(*set.record);
    if (begun && (set.record->title != nullptr || set.record->title_path != nullptr)) {
      row += Column(heading, set.record->width);
    }
  }
  return row;
}

std::string SampleRow(const GroupReading& group) {
  std::string row;
  for (const NodeSetReading& set : group.nodeSets) {
    row += Column(Value(*set.record), set.record->width);
  }
  return row;
}

std::string Summary(const ServiceReading& service) {
  std::string text = "\nservice " + Printable(service.name) + ", line " + std::to_string(LineOf(service.element)) +
                     (service.valid ? "" : ": INVALID, its process idles") + '\n';
  const size_t size = service.record->rotate_size_kbytes;
  text += Row("write mode", WriteModeName(service) + ": " + service.whyWriteMode);
  text += Row("rotation", size == 0 ? "never" : "a new file after " + SizeText(size) + " of text") +
          Row("kept", Kept(service));
  if (service.record->empty_files == EMPTY_FILES_REMOVE) {
    text += Row("empty files", "removed at a start");
  }
  text += Row("most disk", MostDisk(service));
  const size_t seconds = service.record->sync_seconds;
  text +=
      Row("synced", seconds == 0 ? "when the kernel does" : "every " + std::to_string(seconds) + " s while text comes");
  text += Row("CPUs", service.record->cpu_set == CPU_SET_LITTLE ? "0 to 3" : "all");
  size_t number = 0;
  for (const GroupReading& group : service.groups) {
    text += GroupSummary(++number, service, group);
  }
  return text;
}

std::string Printable(const std::string& text) {
  std::string result;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto letter = static_cast<unsigned char>(text[i]);
    // U+0080 to U+009F, two bytes in UTF-8, are control characters too.
    const bool isSecond = i > 0 && text[i - 1] == '\xc2' && letter < 0xa0;
    if (letter < ' ' || letter == 0x7f || isSecond) {
      char code[8];
      snprintf(code, sizeof code, "\\x%02x", letter);
      result += code;
    } else {
      result += text[i];
    }
  }
  return result;
}

}  // namespace Quilcheck
