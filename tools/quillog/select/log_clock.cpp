#include "quillog/select/log_clock.h"

#include <algorithm>

namespace {

constexpr size_t kLongestHead = 128;  ///< of a line, up to its text

}  // namespace

bool LogClock::FindBlock(FileReader& file, FileKind kind, size_t number, uint64_t from, Block* block) {
  std::string text;
  for (block->at = from; file.Head(&block->at, &text); ++block->at) {
    for (size_t line = 0, end = 0; line < text.size(); line = end + 1) {
      end = std::min(text.find('\n', line), text.size());
      block->head = LineHead::Parse(&text[line], end - line);
      // A line that is cut off there may have more to tell.
      if (block->head.HasStamp() && (end < text.size() || end - line > kLongestHead || text.size() < file.kHead)) {
        const uint64_t member = kind == FileKind::kMapped ? block->at : 0;
        block->first = FirstIn(number) + LineReader::RankOf(kind, member, block->at - member + line);
        block->end = BootEndIn(&text[line] + block->head.textAt, end - line - block->head.textAt);
        return true;
      }
    }
  }
  return false;
}

std::vector<FilePart> LogClock::PartsOf(FileReader& file, FileKind kind, size_t number, size_t blocks) {
  std::vector<FilePart> parts = {{0, UINT64_MAX, FirstIn(number), FirstIn(number + 1)}};
  size_t count = 0;
  Block block;
  for (uint64_t at = 0; FindBlock(file, kind, number, at, &block); at = block.at + 1) {
    ++count;
    if (count == 2 && parts.size() > 1) {
      parts[parts.size() - 2].to = block.at;
    }
    if (count > blocks) {
      parts.back().end = block.first;
      parts.push_back({block.at, UINT64_MAX, block.first, FirstIn(number + 1)});
      count = 1;
    }
  }
  return parts;
}

/// False for copies: all but the newest were changed long after the next was begun.
bool LogClock::HasOwnChanges() const {
  for (size_t i = 0; i + 1 < output.files.size(); ++i) {
    const Time next = output.files[i + 1].started;
    const Time changed = output.files[i].modified;
    if (TimeText::IsClockSet(next) && output.files[i].started != kNoTime && changed > next + TimeText::kDay) {
      return false;
    }
  }
  return true;
}

const Timeline& LogClock::Times() {
  if (isSurveyed) {
    return timeline;
  }
  isSurveyed = true;
  const bool hasOwnChanges = HasOwnChanges();
  for (size_t i = 0; i < output.files.size(); ++i) {
    const LogFile& file = output.files[i];
    timeline.AddFile({FirstIn(i), file.started, hasOwnChanges ? file.modified : kNoTime});
  }
  for (size_t i = 0; i < output.files.size(); ++i) {
    Survey(i);
  }
  return timeline;
}

void LogClock::Survey(size_t number) {
  const LogFile& file = output.files[number];
  const ByteRange bytes = file.Open();
  if (!bytes) {
    return;
  }
  const std::unique_ptr<FileReader> heads = FileReader::Make(file.kind, bytes);
  uint64_t from = 0;  // not all was told since
  bool isNext = true;
  Block block;
  for (uint64_t at = 0; FindBlock(*heads, file.kind, number, at, &block); at = block.at + 1) {
    // What comes before the first such block has no head to look at.
    const bool isHidden = isNext && block.at > 0;
    if (isHidden || !timeline.Add(block.first, block.head, isNext)) {
      TellLines(number, bytes, from, block.at);
      timeline.Add(block.first, block.head, true);
    }
    timeline.NoteEnd(block.end);
    told = block.first;
    hasTold = true;
    from = block.at;
    isNext = false;
  }
  TellLines(number, bytes, from, UINT64_MAX);
}

void LogClock::TellLines(size_t number, const ByteRange& bytes, uint64_t from, uint64_t to) {
  const LogFile& file = output.files[number];
  LineReader lines{LineReader::Options()};
  lines.Open(file.kind, bytes, file.Name(), MayBeWritten(file), FirstIn(number));
  if (from > 0 || to != UINT64_MAX) {
    lines.Limit(from, to);
  }
  Line line;
  for (Item item; (item = lines.Next(&line)) != Item::kEnd;) {
    if (item == Item::kLine) {
      Tell(line);
    }
  }
}

void LogClock::AddFile(size_t number, const LogFile& file) {
  timeline.AddFile({FirstIn(number), file.started, TimeText::Now()});
}

void LogClock::Tell(const Line& line) {
  if (line.head.HasStamp() && (line.rank > told || !hasTold)) {
    timeline.Add(line.rank, line.head, true);
    timeline.NoteEnd(BootEndIn(line.text + line.head.textAt, line.size - line.head.textAt));
    told = line.rank;
    hasTold = true;
  }
}

Time LogClock::Oldest() {
  for (const Stretch& stretch : Times().stretches()) {
    if (stretch.source != TimeSource::kNone) {
      return stretch.firstShown + stretch.shift;
    }
  }
  return kNoTime;
}

Time LogClock::Newest() {
  const std::vector<Stretch>& stretches = Times().stretches();
  const auto hasTime = [](const Stretch& stretch) { return stretch.source != TimeSource::kNone; };
  const auto newest = std::find_if(stretches.rbegin(), stretches.rend(), hasTime);
  return newest == stretches.rend() ? kNoTime : newest->lastShown + newest->shift;
}

Moment LogClock::FirstOf(size_t number) {
  const ByteRange bytes = output.files[number].Open();
  if (!bytes) {
    return {};
  }
  LineReader lines{LineReader::Options()};
  lines.Open(output.files[number].kind, bytes, "", false, FirstIn(number));
  Line line;
  for (Item item; (item = lines.Next(&line)) != Item::kEnd;) {
    if (item == Item::kLine && line.head.HasStamp()) {
      return Times().At(line.rank, line.head);
    }
  }
  return {};
}

Moment LogClock::LastOf(size_t number) {
  // All lines of a file's last block were told.
  return Times().At(FirstIn(number + 1) - 1, LineHead());
}
