#include "quillog/line_reader.h"

#include <stdio.h>
#include <string.h>
#include <unistd.h>

void Report::Say(const std::string& file, const std::string& text, bool isDamage) {
  count += isDamage ? 1 : 0;
  if (quiet) {
    return;
  }
  // Where both streams go to one place, the text read so far comes first.
  output.Flush();
  output.HideProgress();
  fprintf(stderr, "quillog: %s: %s\n", file.c_str(), text.c_str());
}

namespace {

/// When the file was begun or, where its name does not say, last changed. kNoTime when the clock was not set then, as
/// with a file that tar has unpacked.
Time SetTimeOf(const LogFile& file) {
  const Time time = file.started != kNoTime ? file.started : file.modified;
  return TimeText::IsClockSet(time) ? time : kNoTime;
}

}  // namespace

LineTimes::FileTimes TimesAround(const std::vector<LogFile>& files, size_t place) {
  constexpr size_t kFarthest = 100;
  LineTimes::FileTimes times;
  times.started = files[place].started;
  times.after = files[place].modified;
  for (size_t i = place; i > 0 && place - i < kFarthest && times.before == kNoTime; --i) {
    times.before = SetTimeOf(files[i - 1]);
  }
  const bool isPlain = files[place].started == kNoTime && TimeText::IsClockSet(times.after);
  for (size_t i = place + 1; !isPlain && i < files.size() && i - place < kFarthest; ++i) {
    if (const Time time = SetTimeOf(files[i]); time != kNoTime) {
      times.after = time;
      break;
    }
  }
  return times;
}

std::unique_ptr<FileReader> LineReader::Open(const std::vector<LogFile>& files, size_t place) {
  const LogFile& file = files[place];
  fileName = file.Name();
  times.StartFile(TimesAround(files, place));
  lineNumber = 0;
  std::string error;
  std::unique_ptr<FileReader> reader = FileReader::Open(file, assembler, &error);
  if (reader == nullptr) {
    // A file that was there a moment ago was deleted for its age.
    const bool isGone = file.inode != 0 && access(file.path.c_str(), F_OK) != 0;
    report.Say(file.path, isGone ? "deleted meanwhile" : error, !isGone);
  }
  return reader;
}

void LineReader::Finish(const LogFile& file, const FileReader& reader) {
  const bool writerDied = !file.newest && reader.Summary().state == FileState::kZeroTail;
  const size_t dropped = assembler.Finish(!writerDied);
  if (dropped > 0) {
    report.Say(fileName, "ends within a line, as its writer died: " + std::to_string(dropped) + " bytes left out",
               false);
  }
}

void LineReader::ReadFile(const std::vector<LogFile>& files, size_t place) {
  const std::unique_ptr<FileReader> reader = Open(files, place);
  if (reader != nullptr) {
    reader->Read(false);
    Finish(files[place], *reader);
  }
}

void LineReader::OnLines(const char* text, size_t size, bool verified) {
  if (options.verifiedOnly && !verified) {
    return;
  }
  if (options.blocks) {
    callbacks.block(text, size);
    return;
  }
  Line line;
  line.verified = verified;
  line.file = &fileName;
  for (const char* end = text + size; text < end;) {
    const auto* feed = static_cast<const char*>(memchr(text, '\n', static_cast<size_t>(end - text)));
    line.text = text;
    line.ended = feed != nullptr;
    line.size = static_cast<size_t>((feed != nullptr ? feed : end) - text);
    text += line.size + 1;
    HandOn(line);
  }
}

void LineReader::HandOn(Line& line) {
  line.time = times.Next(line.text, line.size, &line.hasOwnTime);
  if (options.tellsTitles) {
    NoteTitle(line);
  }
  callbacks.line(line);
}

/// A title is the line after an empty one, without a time of its own. Where rows have no time either, it is found only
/// at the beginning of a file, since elsewhere an empty line may be a row whose nodes all failed. A title seen before
/// is one anywhere: the line feed of the empty line above it may have ended a row that its writer left unfinished.
void LineReader::NoteTitle(Line& line) {
  ++lineNumber;
  const bool isEmpty = line.size == 0 || (line.size == 1 && line.text[0] == '\r');
  const bool isTime = line.hasOwnTime && line.text[0] == 'c';
  const bool sameTitle = title != nullptr && title->compare(0, std::string::npos, line.text, line.size) == 0;
  const bool isTitle =
      !isEmpty && !line.hasOwnTime && (sameTitle || (afterEmptyLine && (lineNumber == 2 || rowsTellTime)));
  if (isTitle && !sameTitle) {
    title = std::make_shared<const std::string>(line.text, line.size);
  }
  line.isRow = !isEmpty && !isTime && !isTitle;
  line.title = title;
  line.followsTimeLine = afterTimeLine;
  rowsTellTime |= line.isRow && line.hasOwnTime;
  afterEmptyLine = isEmpty;
  afterTimeLine = isTime;
}
