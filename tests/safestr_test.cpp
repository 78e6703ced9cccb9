#include "safestr/safestr.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <climits>
#include <clocale>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "../fuzz/format_case.h"

// Present under a sanitizer, which needs more address space than a process short of memory has.
extern "C" [[gnu::weak]] void __asan_init();
extern "C" [[gnu::weak]] void __tsan_init();

namespace {

const size_t kTooLarge = safestr::kMaxSize + 1;

// What vsnprintf_s prints for a format that the compiler must not check, behind "-1 " when that is its result; the
// buffer is watched behind its end.
std::string Print(size_t dest_max, size_t count, const char* format, ...) {
  std::string buffer(dest_max + 8, 'x');
  va_list ap;
  va_start(ap, format);
  const int result = vsnprintf_s(buffer.data(), dest_max, count, format, ap);
  va_end(ap);
  EXPECT_EQ(buffer.substr(dest_max), "xxxxxxxx") << format;
  EXPECT_EQ(buffer.find('\0'), result < 0 ? strlen(buffer.data()) : static_cast<size_t>(result)) << format;
  return (result < 0 ? std::to_string(result) + ' ' : "") + buffer.c_str();
}

// With room for all.
template <typename... Arguments>
std::string Format(const char* format, Arguments... arguments) {
  return Print(8192, 8191, format, arguments...);
}

TEST(BoundedString, CopyCodes) {
  const struct {
    size_t dest_max;
    const char* src;
    size_t count;
    int code;
    const char* left;
  } cases[] = {{4, "abcdef", 3, 0, "abc"},
               {4, "abcdef", 4, 162, ""},
               {4, "abc", kTooLarge - 1, 0, "abc"},
               {4, "abc", kTooLarge, 162, ""},
               {4, "abcdef", 0, 0, ""},
               {4, nullptr, 0, 150, ""},
               {0, "abc", 3, 34, "xxxxxxx"},
               {kTooLarge, "abc", 3, 34, "xxxxxxx"},
               {1, "", 1, 0, ""},
               {1, "a", 1, 162, ""}};
  for (const auto& c : cases) {
    char dest[] = "xxxxxxx";
    EXPECT_EQ(strncpy_s(dest, c.dest_max, c.src, c.count), c.code) << c.dest_max << ' ' << c.count;
    EXPECT_STREQ(dest, c.left);
    EXPECT_EQ(dest[4], 'x');
  }
  EXPECT_EQ(strncpy_s(nullptr, 4, nullptr, 0), 22);
  EXPECT_EQ(strncpy_s(nullptr, 0, "abc", 0), 34);
}

TEST(BoundedString, CopyOverlap) {
  for (size_t to = 0; to < 16; ++to) {
    for (const size_t count : {2U, 3U, 9U}) {  // the string is 3 long: cut, exactly exhausted, terminator found
      char bytes[24] = "........abc";
      const size_t moved = count == 2 ? 3 : 4;
      const bool overlap = to != 8 && to < 8 + moved && 8 < to + moved;
      EXPECT_EQ(strncpy_s(bytes + to, 8, bytes + 8, count), overlap ? 182 : 0) << to << ' ' << count;
      EXPECT_STREQ(bytes + to, overlap ? "" : count == 2 ? "ab" : "abc") << to << ' ' << count;
    }
  }
}

// The rules byte by byte, as they bind.
int AppendByBytes(char* dest, size_t dest_max, const char* src) {
  size_t length = 0;
  while (length < dest_max && dest[length] != '\0') {
    if (dest < src && dest + length == src) return dest[0] = '\0', 182;
    ++length;
  }
  if (length == dest_max) return dest[0] = '\0', 150;
  for (size_t j = 0;; ++j) {
    dest[length + j] = src[j];
    if (src[j] == '\0') return 0;
    if (length + j == dest_max - 1) return dest[0] = '\0', 162;
    if (src <= dest ? src + j + 1 == dest : dest + length + j + 1 == src) return dest[0] = '\0', 182;
  }
}

TEST(BoundedString, ConcatenateWhereverTheSourceLies) {
  char dest[9] = "xxxxxxxx";
  EXPECT_EQ(strcat_s(dest, 0, "abc"), 34);
  EXPECT_EQ(strcat_s(dest, kTooLarge, "abc"), 34);
  EXPECT_EQ(strcat_s(nullptr, 8, "abc"), 22);
  EXPECT_STREQ(dest, "xxxxxxxx");
  EXPECT_EQ(strcat_s(dest, 8, nullptr), 150);
  EXPECT_STREQ(dest, "");
  // Every placing of two strings in 16 bytes, with terminators everywhere: bits of `zeros` put one at each third byte.
  constexpr size_t kBytes = 16;
  int seen[256] = {};
  for (size_t at = 0; at < kBytes * kBytes * kBytes * 64; ++at) {
    const size_t to = at % kBytes, from = at / kBytes % kBytes, zeros = at / kBytes / kBytes / kBytes;
    const size_t dest_max = std::min(at / kBytes / kBytes % kBytes + 1, kBytes - to);
    char expected[kBytes + 1] = "abcdefghijklmnop", actual[kBytes + 1];
    for (size_t i = 0; i < 6; ++i) {
      if ((zeros >> i & 1) != 0) expected[i * 3] = '\0';
    }
    memcpy(actual, expected, sizeof actual);
    const int code = AppendByBytes(expected + to, dest_max, expected + from);
    ++seen[code];
    ASSERT_EQ(strcat_s(actual + to, dest_max, actual + from), code) << to << ' ' << from << ' ' << dest_max;
    const size_t compared = to == from ? 1 : kBytes + 1 - to;  // appended to itself, only the reset byte is promised
    ASSERT_EQ(memcmp(actual + to, expected + to, compared), 0) << to << ' ' << from << ' ' << dest_max;
  }
  for (const int code : {0, 150, 162, 182}) EXPECT_GT(seen[code], 1000) << code;
}

TEST(BoundedString, Fill) {
  char dest[10] = "xxxxxxxxx";
  EXPECT_EQ(memset_s(dest, 0, 'a', 0), 0);
  EXPECT_EQ(memset_s(dest, 0, 'a', 1), 34);
  EXPECT_EQ(memset_s(dest, kTooLarge, 'a', 1), 34);
  EXPECT_EQ(memset_s(nullptr, 8, 'a', 1), 22);
  EXPECT_STREQ(dest, "xxxxxxxxx");
  EXPECT_EQ(memset_s(dest, 8, 'a', 3), 0);
  EXPECT_STREQ(dest, "aaaxxxxxx");
  EXPECT_EQ(memset_s(dest, 8, 0x100 + 'b', 9), 162);
  EXPECT_STREQ(dest, "bbbbbbbbx");
}

TEST(BoundedPrint, WhereItIsNotThePlatforms) {
  const std::string digits_512(512, '0');
  const struct {
    std::string actual, expected;
  } cases[] = {
      {Format("%I64d|%I32d|%Id|%Iq|%I", INT64_MIN, -7, INT64_MAX), "-9223372036854775808|-7|9223372036854775807|Iq|I"},
      {Format("%5I6%d", 8), "I68"},
      {Format("%llI32x|%lI32x|%qd|%Nd|%Zd", int64_t{-1}, int64_t{-1}, INT64_MIN, 3, 4),
       "ffffffff|ffffffffffffffff|-9223372036854775808|3|4"},
      {Format("%hhhd|%hhld|%hhd|%hu", 0x12FF, int64_t{-1}, 0x80, 0x1FFFF), "-1|-1|-128|65535"},
      {Format("%p|%p|%020p|%.9p|%08p", nullptr, 0x1234, 0x1234, 0x1234, nullptr),
       "(nil)|0x1234|0x000000000000001234|0x1234|   (nil)"},
      {Format("%s|%.3s|%-8s|%08s|%05c", nullptr, nullptr, nullptr, "ab", 'c'), "(null)|(nu|(null)  |      ab|    c"},
      {Format("%-*s|%5-3d|%*5d", -10, "ab", 7, 1, 42), "ab        |7  |             42"},
      {Format("%.600d%.600o", 0, 8), digits_512 + digits_512.substr(2) + "10"},
      {Format("%.*5d|%0.*d|%.d", -1, 42, -3, 7, 0), "00042|7|"},
      {Format("%llf|%lf|%Lf|%qf", 1.5, 2.5, 3.5L, 4.5L), "1.500000|2.500000|3.500000|4.500000"},
      {Format("<%*f|%*-*f>", -10, 1.5, 1, 2, 1.5), "<  1.500000|>"},
      {Format("<%.*f|%.*Lf>%d", INT_MAX - 348, 1.5, INT_MAX - 4971, 1.5L, 7), "<|>7"},
      {Format("%.0000000000021474836d", 1), digits_512.substr(1) + '1'},
      {Format("%00000000000000000000000009.2f|", 1.5), "000001.50|"},
      {Format("%ls|%lc|%-8.2S|%S|%hC%5hhs", L"wide", L'w', L"abc", nullptr, 0x100 + 'h', "n"),
       "wide|w|ab      |(null)|h    n"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.actual, c.expected);
}

TEST(BoundedPrint, FormatErrors) {
  for (const char* format : {"%n",     "%a",   "%A",   "%5%",   "%-%",   "%l%",         "%5k",          "%",     "%5",
                             "text%-", "%.",   "%.5",  "%l",    "%1$d",  "%'d",         "%.-5d",        "%..5d", "%*",
                             "%.*",    "%5*d", "%l5d", "%h.5d", "%\x80", "%214748370d", "%.214748370d", "%*0d"}) {
    EXPECT_EQ(Format(format, INT_MAX), "-1 ") << format;
  }
  EXPECT_EQ(Format(nullptr), "-1 ");
}

TEST(BoundedPrint, CutsAtTheEndOfTheRoomUnlessTheFormatIsWrongBefore) {
  EXPECT_EQ(Print(64, 4, "%214748369d%n", 5), "-1     ");
  EXPECT_EQ(Print(64, 4, "%-*d%n", INT_MAX, 5), "-1 5   ");
  EXPECT_EQ(Print(64, 4, "%*d", INT_MIN, 5), "-1 5   ");
  EXPECT_EQ(Print(64, 4, "%.214748369s%n", "abcde"), "-1 ");  // the byte kept for the terminator is room
  EXPECT_EQ(Print(64, 4, "%.214748369s%n", "abcdef"), "-1 abcd");
  EXPECT_EQ(Print(64, 4, "%s%%", "abcd"), "-1 abcd");
}

TEST(BoundedPrint, SizesAndEntryPoints) {
  char buffer[] = "xxxxxxxxx";
  EXPECT_EQ(sprintf_s(buffer, 8, "%s-%d", "abcd", 12), 7);
  EXPECT_STREQ(buffer, "abcd-12");
  EXPECT_EQ(sprintf_s(buffer, 8, "%s-%d", "abcd", 123), -1);
  EXPECT_EQ(std::string(buffer, 9), std::string("\0bcd-12\0x", 9));
  strcpy(buffer, "yyyyyyyyy");
  EXPECT_EQ(snprintf_s(buffer, 0, 0, "%d", 5), -1);
  EXPECT_EQ(sprintf_s(buffer, 0, "%d", 5), -1);
  EXPECT_EQ(snprintf_s(nullptr, 8, 7, "%d", 5), -1);
  EXPECT_STREQ(buffer, "yyyyyyyyy");
  EXPECT_EQ(snprintf_s(buffer, 8, SIZE_MAX, "%d", 5), 1);
  EXPECT_EQ(std::string(buffer, 9), std::string("5\0yyyyy\0y", 9));  // the last byte too is cleared
  const size_t refused[][2] = {{kTooLarge, 7}, {8, safestr::kMaxSize}, {8, SIZE_MAX - 1}};
  for (const auto& size : refused) {
    strcpy(buffer, "y");
    EXPECT_EQ(snprintf_s(buffer, size[0], size[1], "%d", 5), -1);
    EXPECT_STREQ(buffer, "") << size[0] << ' ' << size[1];
  }
}

TEST(FormatEngine, WideTextInUtf8) {
  ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  constexpr wchar_t kLone[] = {0xD800, 0};  // half of a pair: no character
  EXPECT_EQ(Format("%4ls|%-4.2S|%ws|%C", L"äö", L"äöü", L"€", L'€'), "  äö|äö  |€|€");
  EXPECT_EQ(Format("a%8lcb%d", 0xD800, 5), "ab5");
  EXPECT_EQ(Format("a%-8lsb", kLone), "-1 ");
  EXPECT_EQ(Print(64, 2, "%lsb", L"€"), "-1 \xE2\x82");
}

TEST(FormatEngine, FloatBuffersFromTheHeap) {
  EXPECT_EQ(Format("%.300f%600.1f", 0.5, 2.5), "0.5" + std::string(299 + 597, '0').replace(299, 597, 597, ' ') + "2.5");
  // A platform prints what it does not know, however long; that is no number and has no room here.
  EXPECT_EQ(Format(("a%" + std::string(400, 'N') + "fb").c_str(), 0.5), "ab");
  EXPECT_EQ(Format("%Lf", 1.5e4000L).size(), 4008u);
  if (__asan_init != nullptr || __tsan_init != nullptr) return;
  const rlimit limit = {size_t{1} << 30, size_t{1} << 30};
  ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
  EXPECT_EQ(Format("a%.*fb%*ec%d", 2000000000, 0.5, 2000000000, 0.5, 7), "abc7");
}

TEST(FormatEngine, PrintsAsThePlatformDoes) {
  std::mt19937_64 random(20241122);
  for (int i = 0; i < 30000; ++i) {
    std::vector<uint8_t> bytes(random() % 120);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    ASSERT_EQ(FormatCase(bytes.data(), bytes.size()).Compare(), "");
  }
}

}  // namespace
