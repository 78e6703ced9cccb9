#include "quillog/forms/printer.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <utility>

#include "common/json_text.h"
#include "quillog/bytes/text_check.h"
#include "quillog/forms/terminal.h"
#include "quillog/lines/levels.h"

namespace {

constexpr size_t kPolledTime = TextCheck::kPolledTime;
constexpr size_t kStreamedTime = TextCheck::kStreamedTime;

// As text ----------------------------------------------------------------------------------------------------------

class TextPrinter : public Printer {
 public:
  TextPrinter(bool showsTime, bool colored, TextOutput& to) : timed(showsTime), color(colored), output(to) {}

  bool IsPlain() const override { return !timed && !color && !output.IsShown(); }

  void Print(const Run& run) override {
    Begin(run.joins, run.end[-1] == '\n');
    output.Write(run.at, static_cast<size_t>(run.end - run.at));
  }

  void Print(const Line& line) override {
    const char* const code = color ? Terminal::ColorOf(line.head.level) : nullptr;
    const bool goesOn = line.joins && source == lastSource;
    Begin(goesOn, line.ended);
    if (!goesOn && timed) {
      PrintTime(line.moment);
    }
    if (!goesOn && !source->label.empty()) {
      output.Write(source->label + ": ");
    }
    lastSource = source;
    if (code != nullptr) {
      output.WriteCode(std::string("\033[") + code + "m");
    }
    output.Write(line.text, line.size);
    if (code != nullptr) {
      output.WriteCode("\033[0m");
    }
    if (line.ended) {
      output.Write("\n", 1);
    }
  }

  void PrintGap() override {
    Begin(false, true);
    output.Write("--\n", 3);
  }

 private:
  /// "~" is what a derived time is marked by.
  void PrintTime(const Moment& moment) {
    std::string time = moment.source == TimeSource::kDerived ? "~" : moment.time == kNoTime ? "-" : "";
    if (moment.time != kNoTime) {
      iso.Append(time, moment.time);
    }
    output.Write(time + " ");
  }

  /// Two lines without a feed between them would be one that never was.
  void Begin(bool joins, bool ended) {
    if (isOpen && !joins) {
      output.Write("\n", 1);
    }
    isOpen = !ended;
  }

  const bool timed;
  const bool color;
  TimeText::ZonedIso iso;
  TextOutput& output;
  const Source* lastSource = nullptr;
  bool isOpen = false;  ///< the line before had no line feed
};

// As JSON ----------------------------------------------------------------------------------------------------------

class JsonPrinter : public Printer {
 public:
  explicit JsonPrinter(TextOutput& to) : output(to) {}

  void Print(const Line& line) override {
    static constexpr const char* kSources[] = {"none", "derived", "stamped"};
    json = "{";
    if (line.moment.time != kNoTime) {
      json += "\"time\":\"";
      iso.Append(json, line.moment.time);
      json += "\",";
    }
    json += "\"time_source\":\"";
    json += kSources[static_cast<int>(line.moment.source)];
    json += '"';
    if (line.moment.shown != kNoTime) {
      json += ",\"boot\":" + std::to_string(line.moment.boot + 1);
    }
    if (line.head.kernelClock != kNoKernelClock) {
      AppendSeconds(line.head.kernelClock);
    }
    if (line.head.level >= 0) {
      AppendField(",\"level\":", Levels::Name(line.head.level));
    }
    AppendName(line);
    json += ",\"text\":";
    AppendJsonString(json, line.text, line.size);
    json += line.verified ? "}\n" : ",\"unverified\":true}\n";
    output.Write(json);
  }

 private:
  void AppendSeconds(int64_t micros) {
    const std::string fraction = std::to_string(1000000 + micros % 1000000);
    json += ",\"kernel_time\":" + std::to_string(micros / 1000000) + "." + fraction.substr(1);
  }

  /// What names the line for good, as far as there is something that will not change.
  void AppendName(const Line& line) {
    AppendField(",\"device\":", source->device);
    AppendField(",\"output\":", source->output);
    const std::string& file = line.identity != nullptr ? *line.identity : *line.file;
    if (file.empty()) {
      return;
    }
    AppendField(",\"file\":", file);
    json += ",\"place\":\"";
    json += line.identity == nullptr ? std::to_string(line.member) + "+" : "";
    json += std::to_string(line.offset);
    json += '"';
  }

  void AppendField(const char* name, const std::string& value) {
    if (!value.empty()) {
      json += name;
      AppendJsonString(json, value.data(), value.size());
    }
  }

  TextOutput& output;
  std::string json;
  TimeText::ZonedIso iso;
};

// As CSV (RFC 4180, lines ended by a line feed alone) ----------------------------------------------------------------

void AppendCsvField(std::string& row, const std::string& text) {
  row += row.empty() ? "" : ",";
  if (text.find_first_of("\",\r\n") == std::string::npos) {
    row += text;
    return;
  }
  row += '"';
  for (const char c : text) {
    row += c == '"' ? "\"\"" : std::string(1, c);
  }
  row += '"';
}

class CsvPrinter : public Printer {
 public:
  explicit CsvPrinter(TextOutput& to) : output(to) {}

  bool PrintsRowsOnly() const override { return true; }

  void Print(const Line& line) override {
    const bool isPolled = line.head.HasStamp() && line.text[4] == '-';
    const size_t timeLength = !line.head.HasStamp() ? 0 : isPolled ? kPolledTime : kStreamedTime;
    const std::string text(line.text, line.size);
    std::string row;
    if (!source->label.empty()) {
      AppendCsvField(row, source->label);
      row += ',';
    }
    const Moment& moment = line.moment;
    row += moment.source == TimeSource::kDerived ? "~" : "";
    row += moment.time == kNoTime ? "" : TimeText::Iso(moment.time, !isPolled);
    if (line.title == nullptr) {
      PrintHeader("time,text");
      row += ',';
      std::string field;
      AppendCsvField(field, text.substr(timeLength));
      output.Write(row + field + "\n");
      return;
    }
    if (*line.title != title) {
      title = *line.title;
      rowsHaveTime = false;
    }
    rowsHaveTime |= isPolled;
    const std::vector<Column> names = NamesAbove(line, isPolled);
    std::vector<std::string> values;
    // Where rows have a time, a line without one is the rest of a value of several lines.
    if (rowsHaveTime != isPolled || !Assign(SplitColumns(text, timeLength), text.size(), names, &values)) {
      ++misfits;
      return;
    }
    std::string titles = "time";
    for (const Column& name : names) {
      AppendCsvField(titles, name.text);
    }
    PrintHeader(titles);
    for (const std::string& value : values) {
      row += ',';
      std::string field;
      AppendCsvField(field, value);
      row += field;
    }
    output.Write(row + "\n");
  }

  std::string Complaint() const override {
    return misfits == 0
               ? ""
               : std::to_string(misfits) + (misfits == 1 ? " row fits" : " rows fit") + " no title line, left out";
  }

 private:
  void PrintHeader(const std::string& text) {
    const std::string titles = source->label.empty() ? text : "output," + text;
    if (titles != header) {
      header = titles;
      output.Write(header + "\n");
    }
  }

  /// The names above values: all but the first where that one is above the time.
  static std::vector<Column> NamesAbove(const Line& line, bool isPolled) {
    std::vector<Column> names = SplitColumns(*line.title, 0);
    if (isPolled && !names.empty() && names[0].start < kPolledTime) {
      names.erase(names.begin());
    } else if (line.followsTimeLine && names.size() > 1 && line.size < line.title->size()) {
      // The time was a line of its own: the values begin where the row does, and the row is shorter than the title.
      names.erase(names.begin());
      const size_t shift = names[0].start;
      for (Column& name : names) {
        name.start -= shift;
      }
    }
    return names;
  }

  /// Gives each name its value in a row of that length. False: nothing tells which value is whose.
  static bool Assign(const std::vector<Column>& columns, size_t length, const std::vector<Column>& names,
                     std::vector<std::string>* values) {
    values->assign(names.size(), "");
    // Blanks take the place of a value that is missing: a shorter row has no widths.
    const bool isWide = !names.empty() && length >= names.back().start;
    if (isWide && AssignByPlace(columns, names, values)) {
      return true;
    }
    if (columns.size() != names.size()) {
      return false;
    }
    std::transform(columns.begin(), columns.end(), values->begin(), [](const Column& column) { return column.text; });
    return true;
  }

  /// Where columns have widths, a value begins below its name and ends before the next name. It may hold blanks, such
  /// as "Not charging", or be missing. False: the row is not of this kind, or a value was wider than its column.
  static bool AssignByPlace(const std::vector<Column>& columns, const std::vector<Column>& names,
                            std::vector<std::string>* values) {
    size_t next = 0;  // the name after that of the value
    size_t end = 0;   // of the value so far
    for (const Column& column : columns) {
      const bool goesOn = next > 0 && column.start == end + 1;
      while (next < names.size() && names[next].start <= column.start) {
        ++next;
      }
      const bool begins = next > 0 && names[next - 1].start == column.start;
      end = column.start + column.text.size();
      if ((!begins && !goesOn) || (next < names.size() && end >= names[next].start)) {
        return false;
      }
      std::string& value = (*values)[next - 1];
      value += (begins ? "" : " ") + column.text;
    }
    return true;
  }

  TextOutput& output;
  std::string header;
  std::string title;
  bool rowsHaveTime = false;  ///< under that title
  size_t misfits = 0;
};

}  // namespace

std::vector<Column> SplitColumns(const std::string& line, size_t from) {
  constexpr char kBlanks[] = " \t\r";
  constexpr char kFailure[] = "Read Fail";
  std::vector<Column> columns;
  for (size_t start = line.find_first_not_of(kBlanks, from); start != std::string::npos;) {
    size_t end = line.find_first_of(kBlanks, start);
    if (line.compare(start, strlen(kFailure), kFailure) == 0) {
      end = start + strlen(kFailure);
    }
    end = std::min(end, line.size());
    columns.push_back({line.substr(start, end - start), start});
    start = line.find_first_not_of(kBlanks, end);
  }
  return columns;
}

std::unique_ptr<Printer> Printer::Make(Form form, bool colored, TextOutput& output) {
  switch (form) {
    case Form::kJson:
      return std::make_unique<JsonPrinter>(output);
    case Form::kCsv:
      return std::make_unique<CsvPrinter>(output);
    case Form::kText:
    case Form::kIso:
      break;
  }
  return std::make_unique<TextPrinter>(form == Form::kIso, colored, output);
}
