#include "quillog/survey.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "logfile/file_names.h"
#include "quillog/select/log_reader.h"

namespace {

/// What the lines of one file say about time.
struct Span {
  Moment first;
  Moment last;
  bool jumpsBack = false;

  void Add(const Moment& moment, Time before) {
    first = first.shown == kNoTime ? moment : first;
    jumpsBack |= before != kNoTime && moment.shown + TimeText::kSecond <= before;
    last = moment;
  }
};

/// "~" marks a derived time. Of a clock that was lost, and nothing tells the time, what it showed.
std::string Text(const Moment& moment) {
  if (moment.shown == kNoTime) {
    return "-";
  }
  const bool isDerived = moment.source == TimeSource::kDerived;
  std::string text = TimeText::Iso(moment.time == kNoTime ? moment.shown : moment.time, false);
  text[10] = ' ';
  return (isDerived ? "~" : "") + text;
}

const char* TextOf(BootEnd end) {
  switch (end) {
    case BootEnd::kUnknown:
      break;
    case BootEnd::kCut:
      return "cut off";
    case BootEnd::kRestart:
      return "restart";
    case BootEnd::kPowerOff:
      return "power off";
    case BootEnd::kPanic:
      return "panic";
  }
  return "-";
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
bool SharesTime(const Output& output, LogClock& clock, size_t place, const Span& span) {
  const Time next = place + 1 < output.files.size() ? clock.FirstOf(place + 1).time : kNoTime;
  return span.first.time != kNoTime && next >= span.first.time && next < span.last.time;
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
  snprintf(row, sizeof row, "  %-5s  %-20s  %-20s  %10s  %10s  %7s  %s\n", "index", "first", "last", "bytes", "text",
           "members", "state");
  text.Write(row);
  Time before = kNoTime;
  LogClock clock(output);
  LogReader::Options how;
  how.timed = true;
  for (size_t place = 0; place < output.files.size() && text.Works(); ++place) {
    const LogFile& file = output.files[place];
    Span span;
    LogReader log(output, clock, how, place, place + 1);
    Line line;
    for (Item item; (item = log.Next(&line)) != Item::kEnd;) {
      if (item == Item::kDamage) {
        report.Say(log.subject(), log.message(), true);
      } else if (item == Item::kLine && line.head.HasStamp()) {
        span.Add(line.moment, before);
        before = line.moment.shown;
      }
    }
    if (log.file() == nullptr) {
      text.Write("  " + IndexOf(output, file) + "  unreadable\n");
      continue;
    }
    const FileSummary& summary = log.file()->Summary();
    std::string state = StateOf(file, *log.file());
    state = state == "killed" && SharesTime(output, clock, place, span) ? "two writers?" : state;
    snprintf(row, sizeof row, "  %-5s  %-20s  %-20s  %10llu  %10llu  %7llu  %s%s\n", IndexOf(output, file).c_str(),
             Text(span.first).c_str(), Text(span.last).c_str(), static_cast<unsigned long long>(summary.bytes),
             static_cast<unsigned long long>(summary.textBytes), static_cast<unsigned long long>(summary.members),
             state.c_str(), span.jumpsBack ? ", clock jumps back" : "");
    text.Write(row);
    text.Progress("file " + std::to_string(place + 1) + " of " + std::to_string(output.files.size()));
  }
}

/// Adds the text of a run to the boots that it is of.
void AddSizes(const Run& run, const std::vector<Boot>& boots, size_t& boot, std::vector<uint64_t>& sizes) {
  Place at = run.rank;
  for (const Place end = at + static_cast<size_t>(run.end - run.at); at < end;) {
    while (boot + 1 < boots.size() && boots[boot + 1].first <= at) {
      ++boot;
    }
    const Place next = boot + 1 < boots.size() ? std::min(end, boots[boot + 1].first) : end;
    sizes[boot] += next - at;
    at = next;
  }
}

void ListBootsOf(Output& output, TextOutput& text, Report& report) {
  LogClock clock(output);
  const std::vector<Boot> boots = clock.Times().Boots();
  std::vector<uint64_t> sizes(boots.size() + 1);
  size_t boot = 0;
  LogReader log(output, clock, LogReader::Options());
  for (Item item; (item = log.Peek()) != Item::kEnd;) {
    if (item == Item::kLine) {
      AddSizes(log.run(), boots, boot, sizes);
      log.SkipTo(log.run().end);
    } else {
      report.Say(log.subject(), log.message(), item == Item::kDamage);
    }
    text.Progress("file " + std::to_string(log.place() + 1) + " of " + std::to_string(output.files.size()));
  }
  char row[160];
  snprintf(row, sizeof row, "  %5s  %5s  %-20s  %-20s  %10s  %s\n", "boot", "or", "first", "last", "text", "end");
  text.Write(output.path + "\n" + row);
  for (size_t i = 0; i < boots.size(); ++i) {
    snprintf(row, sizeof row, "  %5zu  %5d  %-20s  %-20s  %10llu  %s\n", i + 1,
             static_cast<int>(i) - static_cast<int>(boots.size()) + 1, Text(boots[i].firstMoment).c_str(),
             Text(boots[i].lastMoment).c_str(), static_cast<unsigned long long>(sizes[i]), TextOf(boots[i].end));
    text.Write(row);
  }
}

}  // namespace

void Survey::ListBoots(std::vector<Output>& outputs, TextOutput& text, Report& report) {
  report.SetQuiet();
  for (Output& output : outputs) {
    Hold(output, report);
    text.Write(&output == &outputs.front() ? "" : "\n");
    ListBootsOf(output, text, report);
    OutputFiles::LetGo(output);
  }
}

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
    LogClock clock(output);
    LogReader log(output, clock, LogReader::Options());
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
