#include "quillog/text_view.h"

#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "quillog/archive_reader.h"
#include "quillog/plain_reader.h"

namespace {

/// How often the directory is looked at, which makes the daemon write what it holds, and how long that may take.
constexpr useconds_t kListInterval = 800000;
constexpr useconds_t kFlushTime = 100000;

/// Tells files of the same name apart; a plain file that a rotation renames keeps its key.
std::string KeyOf(const LogFile& file) {
  const std::string name = file.kind == LogFile::Kind::kMapped ? file.path : "";
  return name + "|" + std::to_string(file.device) + "|" + std::to_string(file.inode);
}

}  // namespace

TextView::TextView(const Options& asked, const Query& wanted, Output& shown, Printer& form, TextOutput& to,
                   Report& reported)
    : options(asked),
      query(wanted),
      output(shown),
      printer(form),
      text(to),
      report(reported),
      lineReader(MakeReader()),
      leftOut(!query.MatchesAll()) {}

LineReader TextView::MakeReader() {
  LineReader::Options how;
  how.verifiedOnly = options.verifiedOnly;
  how.tellsTitles = printer.PrintsRowsOnly();
  how.blocks = query.MatchesAll() && printer.IsPlain() && !options.hasLines;
  LineReader::Callbacks callbacks;
  callbacks.line = [this](const Line& line) { ShowOrKeep(line); };
  callbacks.block = [this](const char* block, size_t size) { text.Write(block, size); };
  return LineReader(how, callbacks, report);
}

void TextView::ShowOrKeep(const Line& taken) {
  Line line = taken;
  line.follows = !leftOut;
  leftOut = (printer.PrintsRowsOnly() && !line.isRow) || !query.Matches(line);
  if (leftOut) {
    return;
  }
  if (kept == nullptr) {
    printer.Print(line);
    return;
  }
  if (keepAtMost == 0) {
    return;
  }
  if (kept->size() == keepAtMost) {
    kept->pop_front();
  }
  kept->push_back({line, std::string(line.text, line.size), *line.file});
}

void TextView::Show() {
  if (options.hasLines) {
    ShowLast();
  } else {
    ShowAll();
  }
  text.Flush();
}

void TextView::ShowAll() {
  for (size_t place = 0; place + 1 < output.files.size(); ++place) {
    text.Progress("file " + std::to_string(place + 1) + " of " + std::to_string(output.files.size()));
    lineReader.ReadFile(output.files, place);
  }
  ReadNewest();
}

/// From the newest file back until there are enough lines.
void TextView::ShowLast() {
  KeptLines lines;
  for (size_t place = output.files.size(); place-- > 0 && (lines.size() < options.lines || lines.empty());) {
    KeptLines part;
    kept = &part;
    keepAtMost = options.lines - lines.size();
    leftOut = !query.MatchesAll();
    if (place + 1 == output.files.size()) {
      ReadNewest();
    } else {
      MakeReader().ReadFile(output.files, place);
    }
    lines.insert(lines.begin(), std::make_move_iterator(part.begin()), std::make_move_iterator(part.end()));
    if (options.lines == 0) {
      break;
    }
    text.Progress("file " + std::to_string(place + 1) + " of " + std::to_string(output.files.size()));
  }
  kept = nullptr;
  for (KeptLine& line : lines) {
    line.line.text = line.text.data();
    line.line.file = &line.file;
    printer.Print(line.line);
  }
}

void TextView::ReadNewest() {
  if (output.files.empty()) {
    return;
  }
  const size_t place = output.files.size() - 1;
  if (!options.follow) {
    lineReader.ReadFile(output.files, place);
    return;
  }
  newestFile = output.files[place];
  newest = lineReader.Open(output.files, place);
  ReadOn();
  Remember();
}

void TextView::ReadOn() {
  if (newest != nullptr) {
    newest->Read(true);
  }
}

void TextView::Remember() {
  listed.clear();
  for (const LogFile& file : output.files) {
    listed.insert(KeyOf(file));
  }
}

void TextView::Follow() {
  for (;;) {
    usleep(kFlushTime);
    ReadOn();
    text.Flush();
    text.EndWithoutReader();
    usleep(kListInterval);
    OutputFiles::List(output);
    OutputFiles::Hold(output);
    const std::vector<size_t> places = NewFiles();
    if (!places.empty()) {
      SwitchTo(places);
    }
    Remember();
  }
}

/// The places of files that came after the one that is being read. That one is open, so no other file can have its
/// inode number meanwhile.
std::vector<size_t> TextView::NewFiles() {
  const std::vector<LogFile>& files = output.files;
  size_t first = files.size();
  for (size_t place = 0; place < files.size(); ++place) {
    if (newest != nullptr && files[place].inode == newest->inode() && files[place].device == newest->device()) {
      first = place + 1;
    }
  }
  std::vector<size_t> places;
  const bool found =
      first < files.size() || (first > 0 && newest != nullptr && !files.empty() &&
                               files.back().inode == newest->inode() && files.back().device == newest->device());
  if (found) {
    for (size_t place = first; place < files.size(); ++place) {
      places.push_back(place);
    }
    return places;
  }
  for (size_t place = 0; place < files.size(); ++place) {
    if (listed.count(KeyOf(files[place])) == 0) {
      places.push_back(place);
    }
  }
  return places;
}

/// Reads the file so far to its end, then the others; the last one is the newest from now on.
void TextView::SwitchTo(const std::vector<size_t>& places) {
  uint64_t size = 0;
  unsigned long checksum = 0;
  if (newest != nullptr) {
    newest->Read(false);
    newestFile.newest = false;
    lineReader.Finish(newestFile, *newest);
    if (newestFile.kind == LogFile::Kind::kPlain) {
      size = newest->Summary().textBytes;
      checksum = static_cast<const PlainReader&>(*newest).checksum();
    }
  }
  for (const size_t place : places) {
    newestFile = output.files[place];
    newest = lineReader.Open(output.files, place);
    if (newest != nullptr && newestFile.kind == LogFile::Kind::kArchive && size > 0) {
      // What was read as a plain file has been packed meanwhile, and what came before it too.
      static_cast<ArchiveReader&>(*newest).SkipUpTo(size, checksum);
    }
    if (newest != nullptr && place != places.back()) {
      newest->Read(false);
      lineReader.Finish(newestFile, *newest);
    }
  }
  ReadOn();
  text.Flush();
}

Time NewestTime(const std::vector<LogFile>& files, Report& report) {
  Time latest = kNoTime;
  LineReader::Callbacks callbacks;
  callbacks.line = [&latest](const Line& line) { latest = line.hasOwnTime ? line.time : latest; };
  report.SetQuiet(true);
  const size_t before = report.damages();
  for (size_t place = files.size(); place-- > 0 && latest == kNoTime;) {
    LineReader(LineReader::Options(), callbacks, report).ReadFile(files, place);
  }
  report.SetQuiet(false);
  report.Forget(before);
  return latest;
}
