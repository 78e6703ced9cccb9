// The order of age of indexed log files, and the index of the next one, whatever names stand in the output directory.
//
// The bytes choose the names of a directory. They are listed, sorted and ordered as at set-up, then ordered once more
// for the next index as when a file is opened, each step against a model of the rule. No file is touched.

#include <fuzzer/FuzzedDataProvider.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <set>

#include "logfile/indexed_files.h"

namespace {

using Names = std::vector<std::string>;

constexpr char output[] = "/data/log/cat";

std::string Digits(const char* format, int number) {
  char text[16];
  snprintf(text, sizeof text, format, number);
  return text;
}

std::string IndexedName(const std::string& index, const std::string& timeStamp) {
  return output + (".I" + index) + '.' + timeStamp + ".gz";
}

/// Files of consecutive indexes, 0 behind 999, that become newer or older; mostly few of them.
void AddRun(FuzzedDataProvider& bytes, std::set<std::string>& names) {
  const int first = bytes.ConsumeIntegralInRange(0, 999);
  const int size = bytes.ConsumeIntegralInRange(0, 255);
  const int second = bytes.ConsumeIntegralInRange(100000, 100255);
  const int step = bytes.ConsumeIntegralInRange(-2, 2);
  for (int i = 0; i <= (size < 240 ? size % 16 : (size - 239) * 16); ++i) {
    names.insert(IndexedName(Digits("%03d", (first + i) % 1000), Digits("20240131-%06d", second + i * step)));
  }
}

Names Directory(const uint8_t* data, size_t size) {
  static constexpr const char* kIndexTexts[] = {"-12", "-1x", " -1", "\t-9", "-0 ", "--1", " 7 ", "+99", "1a3", "abc"};
  FuzzedDataProvider bytes(data, size);
  const auto stamp = [&bytes] { return Digits("20240131-%06d", bytes.ConsumeIntegralInRange(100000, 100255)); };
  std::set<std::string> names;
  while (bytes.remaining_bytes() > 0 && names.size() < 64) {
    switch (bytes.ConsumeIntegralInRange(0, 6)) {
      case 0:
        names.insert(IndexedName(bytes.PickValueInArray(kIndexTexts), stamp()));
        break;
      case 1:
        names.insert(IndexedName(bytes.ConsumeBytesAsString(3), stamp()));
        break;
      case 2:
        names.insert(IndexedName(Digits("%03d", bytes.ConsumeIntegralInRange(0, 999)), bytes.ConsumeBytesAsString(15)));
        break;
      case 3:
        names.insert(output + bytes.ConsumeRandomLengthString(26));
        break;
      case 4:
        names.insert('/' + bytes.ConsumeRandomLengthString(40));
        break;
      default:
        AddRun(bytes, names);
    }
  }
  return Names(names.begin(), names.end());
}

/// A part of an indexed name; empty for a name of another length.
std::string Part(const std::string& name, size_t offset, size_t size) {
  const size_t length = strlen(output);
  return name.size() == length + 24 ? name.substr(length + offset, size) : "";
}

long IndexOf(const std::string& name) {
  return strtol(Part(name, 2, 3).c_str(), nullptr, 10);
}

/// Where the newest file of `names` stands, which is not empty.
size_t NewestPosition(const Names& names) {
  std::vector<size_t> ends;  // of runs of consecutive indexes
  std::set<long> indexes;
  for (size_t i = 0; i < names.size(); ++i) {
    indexes.insert(IndexOf(names[i]));
    const bool goesOn = i + 1 < names.size() && (IndexOf(names[i + 1]) == IndexOf(names[i]) + 1 ||
                                                 (IndexOf(names[i]) == 999 && IndexOf(names[i + 1]) == 0));
    if (!goesOn) {
      ends.push_back(i);
    }
  }
  if (ends.size() == 2 && indexes.count(0) == 1 && indexes.count(999) == 1) {
    return ends[0];  // the indexes went past 999
  }
  const auto stampAt = [&names](size_t i) { return Part(names[i], 6, 15); };
  const size_t newest =
      *std::max_element(ends.begin(), ends.end(), [&](size_t a, size_t b) { return stampAt(a) < stampAt(b); });
  return ends.size() == 1 || stampAt(newest).empty() ? names.size() - 1 : newest;
}

Names OrderedByAge(Names names) {
  names.erase(std::remove_if(names.begin(), names.end(), [](const std::string& name) { return IndexOf(name) < 0; }),
              names.end());
  if (!names.empty()) {
    std::rotate(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(NewestPosition(names)) + 1, names.end());
  }
  return names;
}

/// What follows the newest file.
int NextIndex(const Names& names) {
  const std::string index = names.empty() ? "" : Part(names.back(), 2, 3);
  return index.empty() || index.find_first_not_of("0123456789") != std::string::npos ? 0
                                                                                     : (atoi(index.c_str()) + 1) % 1000;
}

void CheckSame(const Names& names, const Names& expected, const char* what) {
  if (names == expected) {
    return;
  }
  fprintf(stderr, "%s: %zu names, %zu expected\n", what, names.size(), expected.size());
  for (size_t i = 0; i < std::max(names.size(), expected.size()); ++i) {
    fprintf(stderr, "%-40s %s\n", i < names.size() ? names[i].c_str() : "",
            i < expected.size() ? expected[i].c_str() : "");
  }
  abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const Names sorted = Directory(data, size);
  Names names(sorted.rbegin(), sorted.rend());
  std::sort(names.begin(), names.end(), IndexedFiles::sort_by_early_time);
  CheckSame(names, sorted, "sorted by name");

  const IndexedFiles files(output);
  files.adjustFileVecOrder(names);
  const Names ordered = OrderedByAge(sorted);
  CheckSame(names, ordered, "ordered by age");
  const int next = files.get_newLogFileIndex(names);
  const Names again = OrderedByAge(ordered);
  CheckSame(names, again, "ordered for the next index");
  if (next != NextIndex(again)) {
    fprintf(stderr, "the next index is %d, %d expected behind %s\n", next, NextIndex(again),
            again.empty() ? "nothing" : again.back().c_str());
    abort();
  }
  return 0;
}
