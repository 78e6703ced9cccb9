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

struct FormatCase {
  const uint8_t* next;
  const uint8_t* end;
  std::string ours, platforms;
  int width, precision;
  bool stars;

  // The little-endian number of the next bytes; 0 once there are none left.
  uint64_t Number(uint64_t bytes) {
    uint64_t number = 0;
    for (uint64_t i = 0; i < bytes && next != end; ++i) number |= uint64_t{*next++} << (8 * i);
    return number;
  }
  // Mostly small.
  int Size(int limit) { return static_cast<int>(Number(2)) % (Number(1) % 16 == 0 ? limit : 40); }

  void Check() {
    const Family& family = kFamilies[Number(1) % std::size(kFamilies)];
    const auto ch = static_cast<char>(Number(1));
    const std::string text = ch == '\0' || ch == '%' ? "%%" : std::string(3, ch);
    std::string front = text + '%';
    for (size_t count = Number(1) % 4; count > 0; --count) front += family.flags[Number(1) % strlen(family.flags)];
    stars = Number(1) % 2 == 0;
    width = Size(601);
    // A negative width aligns to the left, as a star not before a floating-point type.
    if (Number(1) % 4 == 0 && !(stars && strchr("dL", family.takes) != nullptr)) width = -width;
    precision = Size(514) - 1;
    const std::string digits = precision < 0 ? "" : '.' + std::to_string(precision);
    front += stars ? "*.*" : std::to_string(width) + digits;
    const std::string back = family.letters[Number(1) % strlen(family.letters)] + text + "%d";
    ours = front + family.sizes[Number(1) % family.sizes.size()] + back;
    platforms = front + family.platforms_size + back;
    CheckWithValue(family.takes);
  }

  void CheckWithValue(char takes) {
    static constexpr char kText[] = "The quick brown \xF6\xFF jumps\n %d %s %n over the lazy dog, and over, and over";
    static constexpr wchar_t kWideText[] = L"The quick brown fox jumps\n %d %s %n over the lazy dog";
    const auto with = [this](auto value) { stars ? Compare(width, precision, value, -7) : Compare(value, -7); };
    const uint64_t extreme = Number(1) << 63;  // often, and its neighbours
    const uint64_t bits = extreme ^ Number(Number(1) % 9);
    double real = static_cast<double>(bits) / 1000;
    if (Number(1) % 2 == 0) memcpy(&real, &bits, sizeof real);
    if (takes == 'd') return with(real);
    if (takes == 'L') return with(ldexpl(real, static_cast<int>(Number(2) % 20000) - 10000));
    if (takes == 'l') return with(bits);
    if (takes == 's') return with(kText + bits % sizeof kText);
    if (takes == 'W') return with(kWideText + bits % std::size(kWideText));
    with(static_cast<int>(takes == 'C' ? bits & 0x7F : bits));  // a wide character that every locale knows
  }

  template <typename... Arguments>
  void Compare(Arguments... arguments) {
    std::string all(8192, '\0');
    all.resize(static_cast<size_t>(snprintf(all.data(), all.size(), platforms.c_str(), arguments...)));
    const size_t size = all.size(), cut = Number(2) % (size + 3);
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
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FormatCase{data, data + size, {}, {}, 0, 0, false}.Check();
  return 0;
}
