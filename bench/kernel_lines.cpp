#include "kernel_lines.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <vector>

namespace {

// std::mt19937 gives the same numbers everywhere; the standard distributions do not.
using Random = std::mt19937;

std::vector<std::string> ReadPatterns() {
  std::vector<std::string> patterns;
  std::ifstream file(QUILCAT_BENCH_PATTERNS);
  for (std::string line; std::getline(file, line);) {
    patterns.push_back(line);
  }
  if (patterns.empty()) {
    fprintf(stderr, "no patterns in %s\n", QUILCAT_BENCH_PATTERNS);
    abort();
  }
  return patterns;
}

/// Fills in a pattern's fields: %c a digit, %d a number of one to five digits, %x eight hexadecimal digits.
void AppendFields(const char* pattern, Random& random, std::string& text) {
  char field[16];
  for (; *pattern != '\0'; ++pattern) {
    if (*pattern != '%') {
      text += *pattern;
      continue;
    }
    const auto value = static_cast<uint32_t>(random());
    switch (*++pattern) {
      case 'c':
        text += static_cast<char>('0' + value % 8);
        break;
      case 'd':
        snprintf(field, sizeof field, "%u", (value >> 8) % 100000 >> value % 16);
        text += field;
        break;
      default:
        snprintf(field, sizeof field, "%08x", value);
        text += field;
    }
  }
}

}  // namespace

std::string KernelLines(size_t count) {
  const std::vector<std::string> patterns = ReadPatterns();
  Random random(20240131);
  std::string text;
  uint64_t microseconds = 100'000'000;
  for (size_t i = 0; i < count; ++i) {
    microseconds += 1 + random() % 20'000;
    // The smaller of two: some messages are more common than others.
    const size_t first = random() % patterns.size();
    const std::string& pattern = patterns[std::min(first, random() % patterns.size())];
    char prefix[48];
    snprintf(prefix, sizeof prefix, "<%c>[%5llu.%06llu] ", pattern[0],
             static_cast<unsigned long long>(microseconds / 1'000'000),
             static_cast<unsigned long long>(microseconds % 1'000'000));
    text += prefix;
    AppendFields(pattern.c_str() + 2, random, text);
    text += '\n';
  }
  return text;
}
