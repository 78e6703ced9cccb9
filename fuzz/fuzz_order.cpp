// The order of age of indexed log files, and the index of the next one, whatever names are in the output directory:
// each step against a model of the rule. No file is touched.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <set>

#include "choices.h"
#include "logfile/indexed_files.h"

namespace {

using Names = std::vector<std::string>;

constexpr char output[] = "/data/log/cat";

std::string Digits(const char* format, size_t number) {
  char text[16];
  snprintf(text, sizeof text, format, static_cast<int>(number));
  return text;
}

std::string IndexedName(const std::string& index, const std::string& timeStamp) {
  return output + (".I" + index) + '.' + timeStamp + ".gz";
}

/// Files of consecutive indexes, 0 after 999, that become newer or older; mostly few of them.
void AddRun(Choices& choices, std::set<std::string>& names) {
  const size_t first = choices.Below(3) == 0 ? 990 : choices.Below(1000), size = choices.Below(256);
  const size_t second = 100100 + choices.Below(256), step = choices.Below(5);
  for (size_t i = 0; i <= (size < 240 ? size % 16 : (size - 239) * 16); ++i) {
    names.insert(IndexedName(Digits("%03d", (first + i) % 1000), Digits("20240131-%06d", second + i * step - 2 * i)));
  }
}

Names Directory(Choices choices) {
  static constexpr const char* kIndexTexts[] = {"-12", "-1x", " -1", "\t-9", "-0 ", "--1", " 7 ", "+99", "1a3", "abc"};
  const auto bytes = [&choices](size_t most) {
    std::string text(choices.Below(most + 1), '\0');
    for (char& byte : text) byte = static_cast<char>(choices.Below(256));
    return text;
  };
  std::set<std::string> names;
  for (size_t parts = choices.Below(7); parts > 0 && names.size() < 64; --parts) {
    const std::string stamp = Digits("20240131-%06d", 100000 + choices.Below(256));
    const size_t kind = choices.Below(12);
    if (kind == 0) names.insert(IndexedName(kIndexTexts[choices.Below(10)], stamp));
    if (kind == 1) names.insert(IndexedName(bytes(3), stamp));
    if (kind == 2) names.insert(IndexedName(Digits("%03d", choices.Below(1000)), bytes(15)));
    if (kind == 3) names.insert(output + bytes(26));
    if (kind == 4) names.insert('/' + bytes(40));
    if (kind >= 5) AddRun(choices, names);
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

/// The place of the newest file in `names`, which is not empty.
size_t NewestPosition(const Names& names) {
  std::vector<size_t> ends;  // of runs of consecutive indexes
  std::set<long> indexes;
  for (size_t i = 0; i < names.size(); ++i) {
    const long index = IndexOf(names[i]), next = i + 1 < names.size() ? IndexOf(names[i + 1]) : -1;
    indexes.insert(index);
    if (next != index + 1 && !(index == 999 && next == 0)) ends.push_back(i);
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
  if (names.empty()) return names;
  std::rotate(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(NewestPosition(names)) + 1, names.end());
  return names;
}

/// What follows the newest file.
int NextIndex(const Names& names) {
  const std::string index = names.empty() ? "" : Part(names.back(), 2, 3);
  const bool isNumber = !index.empty() && index.find_first_not_of("0123456789") == std::string::npos;
  return isNumber ? (atoi(index.c_str()) + 1) % 1000 : 0;
}

void CheckSame(const Names& names, const Names& expected, const char* what) {
  if (names == expected) return;
  fprintf(stderr, "%s gives\n", what);
  for (const std::string& name : names) fprintf(stderr, "%s\n", name.c_str());
  fprintf(stderr, "and not\n");
  for (const std::string& name : expected) fprintf(stderr, "%s\n", name.c_str());
  abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const Names sorted = Directory(Choices(data, size));
  Names names(sorted.rbegin(), sorted.rend());
  std::sort(names.begin(), names.end(), IndexedFiles::sort_by_early_time);
  CheckSame(names, sorted, "sorting by name");

  const IndexedFiles files(output);
  files.adjustFileVecOrder(names);
  const Names ordered = OrderedByAge(sorted);
  CheckSame(names, ordered, "ordering by age");
  const int next = files.get_newLogFileIndex(names);
  const Names again = OrderedByAge(ordered);
  CheckSame(names, again, "ordering for the next index");
  CheckSame({std::to_string(next)}, {std::to_string(NextIndex(again))}, "the next index");
  return 0;
}
