#include "quillog/select/log_reader.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

namespace {

/// Tells files of the same name apart; a plain file that a rotation renames keeps its key.
std::string KeyOf(const LogFile& file) {
  const std::string name = file.kind == LogFile::Kind::kMapped ? file.path : "";
  return name + "|" + std::to_string(file.device) + "|" + std::to_string(file.inode);
}

/// When the file was begun or, where its name does not say, last changed. kNoTime when the clock was not set then, as
/// with a file that tar has unpacked.
Time SetTimeOf(const LogFile& file) {
  const Time time = file.started != kNoTime ? file.started : file.modified;
  return TimeText::IsClockSet(time) ? time : kNoTime;
}

}  // namespace

LogReader::LogReader(Output& of, const Options& how, size_t first, size_t last)
    : output(of), options(how), lines(how.lines) {
  for (size_t i = first; i < std::min(last, output.files.size()); ++i) {
    places.push_back(i);
  }
  if (options.lines.growing) {
    Remember();
  }
}

/// The times around the file of that place.
LineTimes::FileTimes LogReader::TimesAround(size_t at) const {
  constexpr size_t kFarthest = 100;
  const std::vector<LogFile>& files = output.files;
  LineTimes::FileTimes times;
  times.started = files[at].started;
  times.after = files[at].modified;
  for (size_t i = at; i > 0 && at - i < kFarthest && times.before == kNoTime; --i) {
    times.before = SetTimeOf(files[i - 1]);
  }
  const bool isPlain = files[at].started == kNoTime && TimeText::IsClockSet(times.after);
  for (size_t i = at + 1; !isPlain && i < files.size() && i - at < kFarthest; ++i) {
    if (const Time time = SetTimeOf(files[i]); time != kNoTime) {
      times.after = time;
      break;
    }
  }
  return times;
}

Item LogReader::Next(Line* line) {
  const Item item = Peek();
  return item == Item::kLine ? lines.Next(line) : item;
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
  const LogFile& file = output.files[places.front()];
  if (!gapTold) {
    gapTold = true;
    if (hasBefore && TellGap(file)) {
      return Item::kDamage;
    }
  }
  gapTold = false;
  if (isOpen && before.kind == LogFile::Kind::kPlain) {
    packed = lines.file().Summary();
  }
  current = places.front();
  places.pop_front();
  before = file;
  hasBefore = true;
  const ByteRange bytes = file.Open();
  isOpen = static_cast<bool>(bytes);
  if (!isOpen) {
    // A file that was there a moment ago was deleted for its age.
    const int error = errno;
    const bool isGone = file.inode != 0 && access(file.path.c_str(), F_OK) != 0;
    noteFile = file.path;
    note = isGone ? "deleted meanwhile" : error == 0 ? "not a regular file" : strerror(error);
    return isGone ? Item::kRemark : Item::kDamage;
  }
  lines.Open(file.kind, bytes, file.Name(), file.newest, TimesAround(current));
  if (file.kind == LogFile::Kind::kArchive && mayBePacked) {
    // What was read as a plain file has been packed meanwhile, and what came before it too.
    mayBePacked = packed.textBytes == 0 || !lines.file().PassOver(packed);
  }
  LeaveOutBlocks(file);
  return Item::kLine;
}

bool LogReader::TellGap(const LogFile&) {
  return false;
}

void LogReader::LeaveOutBlocks(const LogFile&) {}

void LogReader::Renew() {
  OutputFiles::List(output);
  OutputFiles::Open(output);
  options.since = options.until = kNoTime;
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
  mayBePacked = isOpen && !isListed && before.kind == LogFile::Kind::kPlain;
  const size_t first = isListed ? static_cast<size_t>(same.base() - files.begin()) : 0;
  for (size_t place = first; place < files.size(); ++place) {
    if (isListed || listed.count(KeyOf(files[place])) == 0) {
      found.push_back(place);
    }
  }
  return found;
}

Time NewestTime(Output& output) {
  LogReader::Options how;
  Time latest = kNoTime;
  for (size_t place = output.files.size(); place-- > 0 && latest == kNoTime;) {
    LogReader log(output, how, place, place + 1);
    Line line;
    for (Item item; (item = log.Next(&line)) != Item::kEnd;) {
      latest = item == Item::kLine && line.hasOwnTime ? line.time : latest;
    }
  }
  return latest;
}
