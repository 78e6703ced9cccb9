// A conversion between texts, in the spelling of vsnprintf_s and in that of the platform's vsnprintf, which are to
// print the same: all of it, and what has room where that ends before, at and after its end.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "safestr/safestr.h"

namespace {

struct Family {
  const char* letters;
  char takes;  // int, long, double, Long double, string, Wide string, char or wide Char
  const char* flags;
  const char* platforms_size;
  std::vector<const char*> sizes;  // that say the same to vsnprintf_s
};

const Family kFamilies[] = {
    {"diuoxX", 'i', "-+ #0", "", {"", "I32", "llI32", "I64I32", "N", "Z", "w"}},
    {"diuoxX", 'i', "-+ #0", "h", {"h", "lh", "hll"}},
    {"diuoxX", 'i', "-+ #0", "hh", {"hh", "hhl", "hhh", "llhh"}},
    {"diuoxX", 'l', "-+ #0", "ll", {"l", "ll", "j", "z", "t", "L", "q", "I", "I64", "lI32", "jI32"}},
    {"eEfFgG", 'd', "-+ #0", "", {"", "l", "ll"}},
    {"eEfFgG", 'L', "-+ #0", "L", {"L", "q"}},
    {"s", 's', "-0", "", {"", "hh"}},
    {"sS", 'W', "-0", "l", {"l", "w"}},
    {"S", 'W', "-0", "", {"", "h"}},
    {"c", 'c', "-0", "", {"", "h"}},
    {"cC", 'C', "-0", "l", {"l", "w"}},
};

// What the bytes of an input choose.
struct Choices {
  uint64_t bits;
  uint16_t width, precision, exponent, cut;
  uint8_t shift, top_bit, family, letter, size, text, stars, negative, is_bit_pattern, flag_count, flags[3];
};

template <typename... Arguments>
void Compare(const std::string& ours, const std::string& platforms, size_t cut, Arguments... arguments) {
  std::string all(8192, '\0');
  all.resize(static_cast<size_t>(snprintf(all.data(), all.size(), platforms.c_str(), arguments...)));
  const size_t size = all.size();
  cut %= size + 3;
  const size_t rooms[][2] = {{size + 9, size + 8}, {size + 1, size},    {size + 1, SIZE_MAX}, {size + 2, cut},
                             {cut + 1, cut},       {cut + 1, SIZE_MAX}, {cut + 1, cut + 1}};
  for (const auto& [dest_max, count] : rooms) {
    std::string actual(dest_max + 1, 'x');
    const int result = snprintf_s(actual.data(), dest_max, count, ours.c_str(), arguments...);
    const bool fits = size <= std::min(count, dest_max - 1);
    const std::string kept = (fits ? all : all.substr(0, count < dest_max ? count : 0)) + '\0';
    const bool is_right = result == (fits ? static_cast<int>(size) : -1) && actual.back() == 'x';
    if (is_right && actual.compare(0, kept.size(), kept) == 0) continue;
    fprintf(stderr, "\"%s\" into %zu, %zu: %d \"%s\"\n", ours.c_str(), dest_max, count, result, actual.c_str());
    abort();
  }
}

// Mostly small.
int Size(uint16_t choice, int limit) {
  return choice % (choice >> 12 == 0 ? limit : 40);
}

void Check(const Choices& c) {
  static constexpr char kText[] = "The quick brown \xF6\xFF jumps\n %d %s %n over the lazy dog, and over, and over";
  static constexpr wchar_t kWideText[] = L"The quick brown fox jumps\n %d %s %n over the lazy dog";
  const Family& family = kFamilies[c.family % std::size(kFamilies)];
  const char takes = family.takes;
  const std::string text = c.text == '\0' || c.text == '%' ? "%%" : std::string(12, static_cast<char>(c.text));
  std::string front = text + '%';
  for (int i = 0; i < c.flag_count % 4; ++i) front += family.flags[c.flags[i] % strlen(family.flags)];
  const bool stars = c.stars % 2 == 0;
  // A negative width aligns to the left; given by a star, not for a floating-point type.
  const bool negative = c.negative % 4 == 0 && !(stars && strchr("dL", takes) != nullptr);
  const int width = Size(c.width, 601) * (negative ? -1 : 1), precision = Size(c.precision, 514) - 1;
  const std::string digits = precision < 0 ? "" : '.' + std::to_string(precision);
  front += stars ? "*.*" : std::to_string(width) + digits;
  const std::string back = family.letters[c.letter % strlen(family.letters)] + text + "%d";
  const std::string ours = front + family.sizes[c.size % family.sizes.size()] + back;
  const std::string platforms = front + family.platforms_size + back;

  const auto with = [&](auto value) {
    stars ? Compare(ours, platforms, c.cut, width, precision, value, -7) : Compare(ours, platforms, c.cut, value, -7);
  };
  const uint64_t bits =
      (c.bits >> c.shift % 64) ^ (uint64_t{c.top_bit} << 63);  // the extremes and their neighbours, too
  double real = static_cast<double>(bits) / 1000;
  if (c.is_bit_pattern % 2 == 0) memcpy(&real, &bits, sizeof real);
  if (takes == 'd') return with(real);
  if (takes == 'L') return with(ldexpl(real, c.exponent % 20000 - 10000));
  if (takes == 'l') return with(bits);
  if (takes == 's') return with(kText + bits % sizeof kText);
  if (takes == 'W') return with(kWideText + bits % std::size(kWideText));
  with(static_cast<int>(takes == 'C' ? bits & 0x7F : bits));  // a wide character that every locale knows
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Choices choices{};
  memcpy(&choices, data, std::min(size, sizeof choices));
  Check(choices);
  return 0;
}
