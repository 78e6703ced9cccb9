#include "quillog/survey.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include "logfile/file_names.h"

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

/// A writer holds a lock on its file, which ends with its process. In a copy there is none.
bool IsLocked(const LogFile& file) {
  const ByteRange range = file.inode != 0 ? file.Open() : ByteRange();
  return range && flock(range.fd(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

std::string StateOf(const LogFile& file, const FileSummary& summary) {
  switch (summary.state) {
    case FileState::kClosed:
      return file.kind == LogFile::Kind::kPlain && file.newest ? "open" : "closed";
    case FileState::kZeroTail:
      return file.newest || IsLocked(file) ? "open" : "killed";
    case FileState::kEmpty:
      return "empty";
    case FileState::kTorn:
      return "torn at byte " + std::to_string(summary.damagedAt);
    case FileState::kDamaged:
      return "damaged at byte " + std::to_string(summary.damagedAt);
  }
  return {};
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

void ListOutput(const Output& output, TextOutput& text, Report& report) {
  text.Write(output.path + "\n");
  char row[512];
  snprintf(row, sizeof row, "  %-5s  %-19s  %-19s  %10s  %10s  %7s  %s\n", "index", "first", "last", "bytes", "text",
           "members", "state");
  text.Write(row);
  Time before = kNoTime;
  for (size_t place = 0; place < output.files.size(); ++place) {
    const LogFile& file = output.files[place];
    Span span;
    LineReader::Callbacks callbacks;
    callbacks.line = [&](const Line& line) {
      if (line.hasOwnTime) {
        span.Add(line.time, before);
        before = line.time;
      }
    };
    LineReader lineReader(LineReader::Options(), callbacks, report);
    const std::unique_ptr<FileReader> reader = lineReader.Open(output.files, place);
    if (reader == nullptr) {
      text.Write("  " + IndexOf(output, file) + "  unreadable\n");
      continue;
    }
    reader->Read(false);
    lineReader.Finish(file, *reader);
    const FileSummary summary = reader->Summary();
    snprintf(row, sizeof row, "  %-5s  %-19s  %-19s  %10llu  %10llu  %7llu  %s%s\n", IndexOf(output, file).c_str(),
             Text(span.first).c_str(), Text(span.last).c_str(), static_cast<unsigned long long>(summary.bytes),
             static_cast<unsigned long long>(summary.textBytes), static_cast<unsigned long long>(summary.members),
             StateOf(file, summary).c_str(), span.jumpsBack ? ", clock jumps back" : "");
    text.Write(row);
    text.Progress("file " + std::to_string(place + 1) + " of " + std::to_string(output.files.size()));
  }
}

}  // namespace

void Survey::List(std::vector<Output>& outputs, TextOutput& text, Report& report) {
  // The table names what is damaged; --verify says more.
  report.SetQuiet(true);
  for (Output& output : outputs) {
    if (!OutputFiles::Hold(output)) {
      report.Say(output.path, strerror(errno), true);
    }
    text.Write(&output == &outputs.front() ? "" : "\n");
    ListOutput(output, text, report);
    OutputFiles::LetGo(output);
  }
  report.SetQuiet(false);
}

void Survey::Verify(std::vector<Output>& outputs, TextOutput& text, Report& report) {
  LineReader::Options how;
  how.blocks = true;
  LineReader::Callbacks callbacks;
  unsigned long long bytes = 0;
  callbacks.block = [&bytes](const char*, size_t size) { bytes += size; };
  for (Output& output : outputs) {
    if (!OutputFiles::Hold(output)) {
      report.Say(output.path, strerror(errno), true);
    }
    bytes = 0;
    const size_t before = report.damages();
    LineReader lineReader(how, callbacks, report);
    for (size_t place = 0; place < output.files.size(); ++place) {
      lineReader.ReadFile(output.files, place);
      text.Progress("file " + std::to_string(place + 1) + " of " + std::to_string(output.files.size()));
    }
    OutputFiles::LetGo(output);
    const size_t damages = report.damages() - before;
    text.Write(output.path + ": " + std::to_string(output.files.size()) +
               (output.files.size() == 1 ? " file, " : " files, ") + std::to_string(bytes) + " bytes of text, " +
               (damages == 0 ? "no damage" : std::to_string(damages) + " damaged") + "\n");
  }
}
