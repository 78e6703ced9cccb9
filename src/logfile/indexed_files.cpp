#include "logfile/indexed_files.h"

#include <ctype.h>
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <memory>

#include "logfile/directory_part.h"
#include "logfile/file_names.h"
#include "platform/local_time.h"

namespace {

constexpr uint32_t kMostIndex = FileNames::kIndexes - 1;

/// The indexes of a list in order of name, taken as runs of consecutive numbers; 0 follows 999.
class IndexRuns {
 public:
  /// Takes the next index. `before` is the entry before it, the end of a run if this index does not continue it.
  void Add(uint32_t index, const std::string* before) {
    const bool continues = before == nullptr || index == previous + 1 || (previous == kMostIndex && index == 0);
    if (!continues) {
      ends.push_back(*before);
    }
    sawFirst |= index == 0;
    sawLast |= index == kMostIndex;
    previous = index;
  }
  void Finish(const std::string& last) { ends.push_back(last); }

  bool isOne() const { return ends.size() == 1; }
  /// 0 ... k and m ... 999: the sequence went past 999 and began again.
  bool isWrapped() const { return ends.size() == 2 && sawFirst && sawLast; }
  const std::vector<std::string>& lastEntries() const { return ends; }

 private:
  uint32_t previous = 0;
  bool sawFirst = false;
  bool sawLast = false;
  std::vector<std::string> ends;
};

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
struct FreeText {
  void operator()(char* text) const { free(text); }
};

/// Not every file system tells the type with the entry.
bool IsRegular(DIR* directory, const dirent& entry) {
  struct stat status;
  return entry.d_type == DT_REG ||
         (entry.d_type == DT_UNKNOWN && fstatat(dirfd(directory), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
          S_ISREG(status.st_mode));
}

}  // namespace

bool IndexedFiles::formFileVectors() {
  logFileVec.clear();
  const bool listed = processMmapFileVec(Scan::kIndexed, &logFileVec);
  std::sort(logFileVec.begin(), logFileVec.end(), sort_by_early_time);
  adjustFileVecOrder(logFileVec);
  return listed;
}

std::string IndexedFiles::pathOf(int32_t index) const {
  const std::unique_ptr<char, FreeText> timeStamp(getTimeStamp());
  return timeStamp != nullptr ? FileNames::indexed(outputFilePath, index, timeStamp.get()) : std::string();
}

std::vector<std::string> IndexedFiles::takeSurplus(uint64_t count) {
  const auto kept = logFileVec.end() - static_cast<std::ptrdiff_t>(std::min<uint64_t>(count, logFileVec.size()));
  std::vector<std::string> surplus(logFileVec.begin(), kept);
  logFileVec.erase(logFileVec.begin(), kept);
  return surplus;
}

std::vector<std::string> IndexedFiles::otherCompressedFiles() const {
  std::vector<std::string> found;
  processMmapFileVec(Scan::kOthers, &found);
  return found;
}

/// Appends the full paths of regular files in the output's directory to `found`: those with indexed names, or the other
/// compressed files of the output. Links and directories are neither.
bool IndexedFiles::processMmapFileVec(Scan scan, std::vector<std::string>* found) const {
  if (strchr(outputFilePath.c_str(), '/') == nullptr) {
    return false;
  }
  const std::unique_ptr<char, FreeText> path(copyDirectoryPart(outputFilePath.c_str()));
  if (path == nullptr) {
    fprintf(stderr, "malloc memory fail when form file vectors.\n");
    return false;
  }
  const std::unique_ptr<DIR, CloseDirectory> directory(opendir(path.get()));
  if (directory == nullptr) {
    fprintf(stderr, "open pdir error.\n");
    return false;
  }
  const std::vector<std::string> oldStyle = oldStyleNames();
  const char* baseName = strrchr(outputFilePath.c_str(), '/') + 1;
  while (const dirent* entry = readdir(directory.get())) {
    if (!IsRegular(directory.get(), *entry)) {
      continue;
    }
    std::string file = path.get() + ("/" + std::string(entry->d_name));
    const bool isIndexed = file.size() == outputFilePath.size() + FileNames::kSuffixLength;
    const bool isOwn = file.find(baseName) != std::string::npos && file.find(FileNames::kGzip) != std::string::npos &&
                       std::find(oldStyle.begin(), oldStyle.end(), file) == oldStyle.end();
    if (isOwn && isIndexed == (scan == Scan::kIndexed)) {
      found->push_back(std::move(file));
    }
  }
  return true;
}

/// 31 January 2024, 23:59:59 -> 20240131-235959
/// no local time             -> 19000100-000000
char* IndexedFiles::getTimeStamp() {
  tm local;
  localTime(time(nullptr), &local);
  char* text = nullptr;
  const int length = asprintf(&text, "%d%02d%02d-%02d%02d%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                              local.tm_hour, local.tm_min, local.tm_sec);
  return length < 0 ? nullptr : text;
}

/// Output /d/log, so 30 bytes, position 8, count 3:
/// /d/log.I007.20240131-235959.gz  -> 007
/// /d/log.I007.20240131-235959.gz2 -> (empty)
std::string IndexedFiles::get_interger_from_iterator(PathIterator name, uint32_t expectedLength, uint32_t position,
                                                     uint32_t count) {
  if (name->size() != expectedLength || position + count - 1 > expectedLength || position > expectedLength) {
    return {};
  }
  return name->substr(position, count);
}

/// The `count` bytes at `offset` behind the output path in an indexed name; empty for any other name.
std::string IndexedFiles::suffixField(PathIterator name, uint32_t offset, uint32_t count) const {
  const auto length = static_cast<uint32_t>(outputFilePath.size());
  return get_interger_from_iterator(name, length + FileNames::kSuffixLength, length + offset, count);
}

bool IndexedFiles::sort_by_early_time(const std::string& first, const std::string& second) {
  return first < second;
}

/// a, b, name, c, d -> c, d, a, b, name
void IndexedFiles::rotate_vec(std::vector<std::string>& paths, const std::string& name) {
  if (name.empty()) {
    return;
  }
  const auto found = std::find(paths.begin(), paths.end(), name);
  if (found == paths.end()) {
    return;
  }
  // Further entries of that name stay with it, at the end.
  const auto later =
      std::stable_partition(found, paths.end(), [&name](const std::string& path) { return path == name; });
  std::rotate(paths.begin(), later, paths.end());
}

std::string IndexedFiles::get_file_by_max_timestamp(std::vector<std::string> paths) const {
  std::string newest;
  std::string path;
  for (auto entry = paths.begin(); entry != paths.end(); ++entry) {
    std::string timeStamp = suffixField(entry, FileNames::kTimeStampOffset, FileNames::kTimeStampLength);
    if (timeStamp > newest) {
      newest = std::move(timeStamp);
      path = *entry;
    }
  }
  return path;
}

/// Indexes in order of name -> in order of age:
/// 000 001 ... 997 998 999 (all)     -> as they stand: one run
/// 000 001 998 999                   -> 998 999 000 001: wrapped
/// 000 001 007 008, 001 the newest   -> 007 008 000 001: the run with the newest file goes last
void IndexedFiles::adjustFileVecOrder(std::vector<std::string>& paths) const {
  const auto index = [this](PathIterator path) { return static_cast<uint32_t>(atoi(indexField(path).c_str())); };
  // A negative index text makes a huge number: no name of ours. The list forgets it, the file stays.
  auto kept = paths.begin();
  for (auto path = paths.begin(); path != paths.end(); ++path) {
    if (index(path) <= kMostIndex) {
      std::swap(*kept++, *path);
    }
  }
  paths.erase(kept, paths.end());
  if (paths.empty()) {
    return;
  }
  IndexRuns runs;
  for (auto path = paths.begin(); path != paths.end(); ++path) {
    runs.Add(index(path), path == paths.begin() ? nullptr : &path[-1]);
  }
  runs.Finish(paths.back());
  if (runs.isOne()) {
    return;
  }
  rotate_vec(paths, runs.isWrapped() ? runs.lastEntries().front() : get_file_by_max_timestamp(runs.lastEntries()));
}

int32_t IndexedFiles::get_newLogFileIndex(std::vector<std::string>& paths) const {
  adjustFileVecOrder(paths);
  if (paths.empty()) {
    return 0;
  }
  const std::string field = indexField(paths.end() - 1);
  const bool isNumber = field.size() == FileNames::kIndexLength &&
                        std::all_of(field.begin(), field.end(), [](unsigned char c) { return isdigit(c) != 0; });
  if (!isNumber) {
    return 0;
  }
  return (atoi(field.c_str()) + 1) % FileNames::kIndexes;
}
