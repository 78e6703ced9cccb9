#include "quillog/select/log_reader.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "logfile/file_names.h"

namespace {

/// Tells files of the same name apart; a plain file that a rotation renames keeps its key.
std::string KeyOf(const LogFile& file) {
  const std::string name = file.kind == LogFile::Kind::kMapped ? file.path : "";
  return name + "|" + std::to_string(file.device) + "|" + std::to_string(file.inode);
}

/// Files that are not there between two that follow each other.
struct Missing {
  size_t count = 0;
  std::string names;
  bool isSure = true;  ///< a rotation that was broken off leaves no such gap
};

/// The number in the name of a file of factory mode, the live file's is 0; `*kind` tells numbers apart that are not of
/// one sequence.
int NumberOf(const LogFile& file, std::string* kind) {
  const std::string output = FileNames::outputOfRotated(file.path);
  *kind = file.kind == LogFile::Kind::kArchive ? FileNames::outputOfArchive(file.path)
          : output.empty()                     ? file.path
                                               : output;
  const size_t digits = kind->size() + 1;
  return digits < file.path.size() ? atoi(file.path.c_str() + digits) : 0;
}

Missing MissingBetween(const LogFile& before, const LogFile& after) {
  Missing missing;
  const std::string index = FileNames::parseIndexed(before.path).index;
  const std::string next = FileNames::parseIndexed(after.path).index;
  std::string kinds[2];
  char first[32];
  char last[32];
  if (!index.empty() && !next.empty()) {
    const int number = atoi(index.c_str());
    const int step = (atoi(next.c_str()) - number + FileNames::kIndexes) % FileNames::kIndexes;
    // No step at all, or one back, begins another run of files.
    missing.count = step > 0 && step < FileNames::kIndexes / 2 ? static_cast<size_t>(step - 1) : 0;
    snprintf(first, sizeof first, "I%03d", (number + 1) % FileNames::kIndexes);
    snprintf(last, sizeof last, "I%03d", (number + static_cast<int>(missing.count)) % FileNames::kIndexes);
  } else {
    const int number = NumberOf(before, &kinds[0]);
    const int least = NumberOf(after, &kinds[1]);
    const bool isSequence = before.kind == after.kind && kinds[0] == kinds[1] && number > least;
    missing.count = isSequence ? static_cast<size_t>(number - least - 1) : 0;
    missing.isSure = missing.count > 1;
    snprintf(first, sizeof first, "%s%d", before.kind == LogFile::Kind::kArchive ? "-" : ".", number - 1);
    snprintf(last, sizeof last, "%s%d", before.kind == LogFile::Kind::kArchive ? "-" : ".", least + 1);
  }
  missing.names = first + (missing.count == 1 ? "" : std::string(missing.count == 2 ? " and " : " to ") + last);
  return missing;
}

}  // namespace

LogReader::LogReader(Output& of, LogClock& times, const Options& how, size_t first, size_t last)
    : output(of), clock(times), options(how), lines(how.lines), nextNumber(output.files.size()) {
  for (size_t i = first; i < std::min(last, output.files.size()); ++i) {
    places.push_back(i);
  }
  if (options.lines.growing) {
    Remember();
  }
  if (options.timed) {
    clock.Times();  // of the files that are numbered here
  }
}

Item LogReader::Next(Line* line) {
  const Item item = Peek();
  if (item != Item::kLine) {
    return item;
  }
  lines.Next(line);
  if (options.timed) {
    clock.Tell(*line);
    if (line->head.HasStamp() || !hasMoment) {
      moment = clock.Times().At(line->rank, line->head);
      hasMoment = true;
    }
    line->moment = moment;
  }
  return item;
}

bool LogReader::Wants(const Line& line) {
  const Wanted& wanted = options.wanted;
  return line.rank >= wanted.from && line.rank < wanted.end &&
         (!wanted.HasRange() || clock.Times().Wants(wanted.range, line.rank, line.moment));
}

Item LogReader::Peek() {
  for (;;) {
    Item item = isOpen ? lines.Peek() : Item::kEnd;
    if (item == Item::kDamage || item == Item::kRemark) {
      noteFile = before.Name();
      note = lines.message();
    }
    if (item != Item::kEnd || places.empty()) {
      return item;
    }
    item = OpenNext();
    if (item != Item::kLine) {
      return item;
    }
  }
}

/// kLine: the next file is open. Otherwise something is to be said first.
Item LogReader::OpenNext() {
  if (mayBePacked && !isMeasured) {
    isMeasured = true;
    packed = lines.file().Summary();
    mayBePacked = packed.textBytes > 0;
  }
  if (!gapTold && hasBefore) {
    gapTold = true;
    if (const Item item = TellGap(places.front()); item != Item::kLine) {
      return item;
    }
  }
  gapTold = false;
  current = places.front();
  number = renewed ? nextNumber++ : current;
  hasMoment = false;
  places.pop_front();
  before = output.files[current];
  hasBefore = true;
  const ByteRange bytes = before.Open();
  isOpen = static_cast<bool>(bytes);
  if (!isOpen) {
    // A file that was there a moment ago was deleted for its age.
    const int error = errno;
    const bool isGone = before.inode != 0 && error == ENOENT;
    noteFile = before.path;
    note = isGone ? "deleted meanwhile" : strerror(error);
    return isGone && !renewed ? Item::kRemark : Item::kDamage;
  }
  lines.Open(before.kind, bytes, before.Name(), before.newest && MayGrow(), LogClock::FirstIn(number));
  if (renewed && options.timed) {
    clock.AddFile(number, before);
  }
  if (before.kind == LogFile::Kind::kArchive && mayBePacked) {
    // What was read as a plain file has been packed meanwhile, and what came before it too.
    mayBePacked = !lines.file().PassOver(packed);
  }
  LeaveOutBlocks();
  return Item::kLine;
}

/// False where no writer can be at work in the file that was opened: waiting for one takes long where many are torn.
bool LogReader::MayGrow() const {
  return before.inode != 0 && (options.lines.growing || LogClock::MayBeWritten(before));
}

Item LogReader::FindGapBefore(size_t at) {
  current = at - 1;
  before = output.files[current];
  return TellGap(at);
}

/// kLine: no file is missing before that one.
Item LogReader::TellGap(size_t next) {
  const LogFile& after = output.files[next];
  Missing missing = output.isFiles ? Missing() : MissingBetween(before, after);
  const auto isPacked = [](const LogFile& file) { return file.Name() == FileNames::kPacked; };
  missing.isSure |=
      before.kind == LogFile::Kind::kArchive && std::none_of(output.files.begin(), output.files.end(), isPacked);
  noteFile = before.Name();
  if (mayBePacked && after.kind == LogFile::Kind::kPlain) {
    mayBePacked = false;
    note = "deleted while it was read, and files after it perhaps";
    return Item::kRemark;
  }
  if (missing.count == 0 || before.path == after.path) {
    return Item::kLine;
  }
  const bool isListed = current < output.files.size() && output.files[current].path == before.path;
  LogClock afresh(output);
  LogClock& times = renewed ? afresh : clock;
  const Time from = isListed ? times.LastOf(current).time : kNoTime;
  const Time to = times.FirstOf(next).time;
  const Timeline::Range& range = options.wanted.range;
  if ((range.since != kNoTime && to != kNoTime && to < range.since) ||
      (range.until != kNoTime && from != kNoTime && from > range.until) ||
      (!renewed && std::max(range.from, options.wanted.from) >= LogClock::FirstIn(next)) ||
      (!renewed && options.wanted.end <= LogClock::FirstIn(next))) {
    return Item::kLine;  // it is not in what was asked for
  }
  const std::string many = std::to_string(missing.count) + (missing.count == 1 ? " file" : " files");
  note = many + (renewed ? " rotated away before reading came to " : " missing: ") + missing.names + ", between " +
         (from == kNoTime ? "-" : TimeText::Iso(from, false)) + " and " +
         (to == kNoTime ? "-" : TimeText::Iso(to, false));
  return missing.isSure || renewed ? Item::kDamage : Item::kRemark;
}

/// True when wanted lines may be between two places.
bool LogReader::MayHold(Place begin, Place end) {
  begin = std::max(begin, options.wanted.from);
  end = std::min(end, options.wanted.end);
  return begin < end && (!options.wanted.HasRange() || clock.Times().NextWanted(options.wanted.range, begin) < end);
}

/// Goes from the first block that may hold wanted lines to the last.
void LogReader::LeaveOutBlocks() {
  if (options.part.from > 0 || options.part.to != UINT64_MAX) {
    lines.Limit(options.part.from, options.part.to);
    return;
  }
  if (options.lines.tellsTitles || options.wanted.IsAll() || renewed) {
    return;
  }
  uint64_t from = UINT64_MAX;
  uint64_t to = 0;
  if (MayHold(LogClock::FirstIn(number), LogClock::FirstIn(number + 1))) {
    for (const FilePart& part : LogClock::PartsOf(lines.file(), before.kind, number, 1)) {
      if (MayHold(part.first, part.end)) {
        from = std::min(from, part.from);
        to = part.to;
      }
    }
  }
  if (from > 0 || to != UINT64_MAX) {
    lines.Limit(from, to);
  }
}

void LogReader::Renew() {
  OutputFiles::List(output);
  OutputFiles::Hold(output);
  if (isOpen && options.timed) {
    clock.AddFile(number, before);
  }
  renewed = true;
  const std::vector<size_t> found = NewFiles();
  places.assign(found.begin(), found.end());
  if (!found.empty() && isOpen) {
    lines.NoteSuccessor();
  }
  Remember();
}

void LogReader::Remember() {
  listed.clear();
  for (const LogFile& file : output.files) {
    listed.insert(KeyOf(file));
  }
}

/// The places of files that came after the one that is being read. That one is open, so no other file can have its
/// inode number meanwhile.
std::vector<size_t> LogReader::NewFiles() {
  const std::vector<LogFile>& files = output.files;
  std::vector<size_t> found;
  const auto isSame = [this](const LogFile& file) {
    return isOpen && file.inode == before.inode && file.device == before.device;
  };
  const auto same = std::find_if(files.rbegin(), files.rend(), isSame);
  const bool isListed = same != files.rend();
  isMeasured = false;
  mayBePacked = isOpen && !isListed && before.kind == LogFile::Kind::kPlain;
  const size_t first = isListed ? static_cast<size_t>(same.base() - files.begin()) : 0;
  for (size_t place = first; place < files.size(); ++place) {
    if (isListed || listed.count(KeyOf(files[place])) == 0) {
      found.push_back(place);
    }
  }
  return found;
}
