#include "quillog/survey.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "logfile/file_names.h"
#include "quillog/select/log_reader.h"

namespace {

/// What the lines of one file say about time.
struct Span {
  Time first = kNoTime;
  Time last = kNoTime;
  bool jumpsBack = false;

  void Add(Time time, Time before) {
    first = first == kNoTime ? time : first;
    jumpsBack |= before != kNoTime && time + TimeText::kSecond <= before;
    last = time;
  }
};

std::string Text(Time time) {
  if (time == kNoTime) {
    return "-";
  }
  std::string text = TimeText::Iso(time, false);
  text[10] = ' ';
  return text;
}

std::string StateOf(const LogFile& file, const FileReader& reader) {
  switch (reader.Summary().state) {
    case FileState::kClosed:
      return file.kind == LogFile::Kind::kPlain && file.newest ? "open" : "closed";
    case FileState::kZeroTail:
      return file.newest || reader.HasWriter() ? "open" : "killed";
    case FileState::kEmpty:
      return "empty";
    case FileState::kTorn:
      return "torn at byte " + std::to_string(reader.Summary().damagedAt);
    case FileState::kDamaged:
      return "damaged at byte " + std::to_string(reader.Summary().damagedAt);
  }
  return {};
}

/// True when the next file begins before this one ends: killed in the middle, it would end before.
bool SharesTime(Output& output, size_t place, const Span& span) {
  const Time next = place + 1 < output.files.size() ? OldestTime(output, place + 1, place + 2) : kNoTime;
  return span.first != kNoTime && next >= span.first && next < span.last;
}

/// "cat.I007.20240131-235959.gz" -> "I007", "cat-10.tar.gz" -> "-10", "cat.3" -> ".3", "cat" -> "live"
std::string IndexOf(const Output& output, const LogFile& file) {
  if (output.isFiles) {
    return file.Name();
  }
  if (file.kind == LogFile::Kind::kMapped) {
    return 'I' + FileNames::parseIndexed(file.path).index;
  }
  const std::string base = output.path.substr(output.path.rfind('/') + 1);
  const std::string name = file.Name();
  if (name == base) {
    return "live";
  }
  const size_t end = file.kind == LogFile::Kind::kArchive ? name.size() - strlen(FileNames::kArchiveEnd) : name.size();
  return name.compare(0, base.size(), base) == 0 ? name.substr(base.size(), end - base.size()) : name;
}

void ListOutput(Output& output, TextOutput& text, Report& report) {
  text.Write(output.path + "\n");
  char row[512];
  snprintf(row, sizeof row, "  %-5s  %-19s  %-19s  %10s  %10s  %7s  %s\n", "index", "first", "last", "bytes", "text",
           "members", "state");
  text.Write(row);
  Time before = kNoTime;
  for (size_t place = 0; place < output.files.size() && text.Works(); ++place) {
    const LogFile& file = output.files[place];
    Span span;
    LogReader log(output, LogReader::Options(), place, place + 1);
    Line line;
    for (Item item; (item = log.Next(&line)) != Item::kEnd;) {
      if (item == Item::kDamage) {
        report.Say(log.subject(), log.message(), true);
      } else if (item == Item::kLine && line.hasOwnTime) {
        span.Add(line.time, before);
        before = line.time;
      }
    }
    if (log.file() == nullptr) {
      text.Write("  " + IndexOf(output, file) + "  unreadable\n");
      continue;
    }
    const FileSummary& summary = log.file()->Summary();
    std::string state = StateOf(file, *log.file());
    state = state == "killed" && SharesTime(output, place, span) ? "two writers?" : state;
    snprintf(row, sizeof row, "  %-5s  %-19s  %-19s  %10llu  %10llu  %7llu  %s%s\n", IndexOf(output, file).c_str(),
             Text(span.first).c_str(), Text(span.last).c_str(), static_cast<unsigned long long>(summary.bytes),
             static_cast<unsigned long long>(summary.textBytes), static_cast<unsigned long long>(summary.members),
             state.c_str(), span.jumpsBack ? ", clock jumps back" : "");
    text.Write(row);
    text.Progress("file " + std::to_string(place + 1) + " of " + std::to_string(output.files.size()));
  }
}

}  // namespace

void Survey::Hold(Output& output, Report& report) {
  if (!OutputFiles::Hold(output)) {
    report.Say(output.path, strerror(errno), true);
  }
}

void Survey::List(std::vector<Output>& outputs, TextOutput& text, Report& report) {
  // The table names what is damaged; --verify says more.
  report.SetQuiet();
  for (Output& output : outputs) {
    Hold(output, report);
    text.Write(&output == &outputs.front() ? "" : "\n");
    ListOutput(output, text, report);
    OutputFiles::LetGo(output);
  }
}

void Survey::Verify(std::vector<Output>& outputs, TextOutput& text, Report& report) {
  for (Output& output : outputs) {
    Hold(output, report);
    unsigned long long bytes = 0;
    const size_t before = report.damages();
    LogReader log(output, LogReader::Options());
    for (Item item; text.Works() && (item = log.Peek()) != Item::kEnd;) {
      if (item == Item::kLine) {
        bytes += static_cast<size_t>(log.run().end - log.run().at);
        log.SkipTo(log.run().end);
      } else {
        report.Say(log.subject(), log.message(), item == Item::kDamage);
      }
      text.Progress("file " + std::to_string(log.place() + 1) + " of " + std::to_string(output.files.size()));
    }
    OutputFiles::LetGo(output);
    const size_t damages = report.damages() - before;
    text.Write(output.path + ": " + std::to_string(output.files.size()) +
               (output.files.size() == 1 ? " file, " : " files, ") + std::to_string(bytes) + " bytes of text, " +
               (damages == 0 ? "no damage" : std::to_string(damages) + " damaged") + "\n");
  }
}
