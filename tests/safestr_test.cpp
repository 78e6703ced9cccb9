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
#include "safestr/format_output.h"

// A sanitizer needs more address space than a process short of memory has.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define UNDER_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define UNDER_SANITIZER
#endif
#endif

namespace {

constexpr char kUntouched = 'x';
const size_t kTooLarge = safestr::kMaxSize + 1;

// vsnprintf_s for formats that the compiler must not check, into a buffer that is watched behind its end.
struct Printed {
  int result;
  std::string text;
  bool operator==(const Printed& other) const { return result == other.result && text == other.text; }
};

std::ostream& operator<<(std::ostream& out, const Printed& printed) {
  return out << printed.result << " \"" << printed.text << '"';
}

Printed VPrint(size_t dest_max, size_t count, const char* format, va_list ap) {
  std::string buffer(dest_max + 8, kUntouched);
  const int result = vsnprintf_s(buffer.data(), dest_max, count, format, ap);
  EXPECT_EQ(buffer.substr(dest_max), std::string(8, kUntouched)) << format;
  EXPECT_NE(memchr(buffer.data(), 0, dest_max), nullptr) << format;
  return {result, std::string(buffer.data(), result >= 0 ? static_cast<size_t>(result) : strlen(buffer.data()))};
}

Printed Print(size_t dest_max, size_t count, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  const Printed printed = VPrint(dest_max, count, format, ap);
  va_end(ap);
  return printed;
}

// The text alone, "<error>" for -1.
std::string Format(const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  const Printed printed = VPrint(2048, 2047, format, ap);
  va_end(ap);
  return printed.result < 0 && printed.text.empty() ? "<error>" : printed.text;
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
               {4, "abc", 4, 0, "abc"},
               {4, "abc", kTooLarge - 1, 0, "abc"},
               {4, "abc", kTooLarge, 162, ""},
               {4, "abcd", 4, 162, ""},
               {4, "abcdef", 0, 0, ""},
               {4, nullptr, 3, 150, ""},
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
  char dest[8] = "xxxxxx";
  EXPECT_EQ(strncpy_error(dest, 8, "abc", 9), 0);
  EXPECT_EQ(strncpy_error(dest, 3, "abc", 3), 162);
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
      {Format("%*.*f|%.*e|%.*g", 8, 2, 3.14159, -1, 1.0, 0, 12.0), "    3.14|1.000000e+00|1e+01"},
      {Format("<%*f|%*-*f>", -10, 1.5, 1, 2, 1.5), "<  1.500000|>"},
      {Format("<%.*f|%.*Lf>%d", INT_MAX - 348, 1.5, INT_MAX - 4971, 1.5L, 7), "<|>7"},
      {Format("%.0000000000021474836d", 1), digits_512.substr(1) + '1'},
      {Format("%00000000000000000000000009.2f|", 1.5), "000001.50|"},
      {Format("%ls|%lc|%-8.2S|%S|%hC%5hhs", L"wide", L'w', L"abc", nullptr, 0x100 + 'h', "n"),
       "wide|w|ab      |(null)|h    n"},
      {Format("a%%b%%"), "a%b%"},
      {Format(""), ""},
  };
  for (const auto& c : cases) EXPECT_EQ(c.actual, c.expected);
}

TEST(BoundedPrint, FormatErrors) {
  for (const char* format : {"%n",     "%a",   "%A",   "%5%",   "%-%",   "%l%",         "%5k",          "%",     "%5",
                             "text%-", "%.",   "%.5",  "%l",    "%1$d",  "%'d",         "%.-5d",        "%..5d", "%*",
                             "%.*",    "%5*d", "%l5d", "%h.5d", "%\x80", "%214748370d", "%.214748370d", "%*0d"}) {
    EXPECT_EQ(Print(64, 63, format, INT_MAX), (Printed{-1, ""})) << format;
  }
  EXPECT_EQ(Print(64, 63, nullptr), (Printed{-1, ""}));
}

TEST(BoundedPrint, NumbersAtTheirLimits) {
  EXPECT_EQ(Print(64, 4, "%214748369d", 5), (Printed{-1, "    "}));
  EXPECT_EQ(Print(64, 4, "%-*d", INT_MAX, 5), (Printed{-1, "5   "}));
  EXPECT_EQ(Print(64, 4, "%*d", INT_MIN, 5), (Printed{-1, "5   "}));
  EXPECT_EQ(Print(64, 4, "%.214748369s%n", "ab"), (Printed{-1, ""}));
  EXPECT_EQ(Print(64, 4, "%.214748369s%n", "abcdef"), (Printed{-1, "abcd"}));  // the room ended first
}

TEST(BoundedPrint, EveryEndOfTheRoom) {
  const std::string all = "   42|text|ff    |0x1|1.250|-0007|%(nil)";
  const auto print = [](size_t dest_max, size_t count) {
    return Print(dest_max, count, "%5d|%s|%-6x|%#x|%.3f|%05d|%%%p", 42, "text", 255, 1, 1.25, -7, nullptr);
  };
  const Printed complete = {static_cast<int>(all.size()), all};
  for (size_t dest_max = 1; dest_max < all.size() + 3; ++dest_max) {
    for (size_t count = 0; count < all.size() + 4; ++count) {
      const bool fits = all.size() <= std::min(count, dest_max - 1);
      const Printed cut = {-1, count < dest_max ? all.substr(0, count) : ""};
      ASSERT_EQ(print(dest_max, count), fits ? complete : cut) << dest_max << ' ' << count;
    }
    ASSERT_EQ(print(dest_max, SIZE_MAX), all.size() < dest_max ? complete : (Printed{-1, ""})) << dest_max;
  }
}

TEST(BoundedPrint, EntryPoints) {
  char buffer[] = "xxxxxxxxx";
  EXPECT_EQ(sprintf_s(buffer, 8, "%s-%d", "abcd", 12), 7);
  EXPECT_STREQ(buffer, "abcd-12");
  EXPECT_EQ(sprintf_s(buffer, 8, "%s-%d", "abcd", 123), -1);
  EXPECT_EQ(std::string(buffer, 9), std::string("\0bcd-12\0x", 9));
  EXPECT_EQ(snprintf_s(buffer, 8, 8, "%d", 5), 1);
  EXPECT_EQ(snprintf_s(nullptr, 8, 7, "%d", 5), -1);
  const size_t refused[][2] = {{kTooLarge, 7}, {8, safestr::kMaxSize}, {8, SIZE_MAX - 1}};
  for (const auto& size : refused) {
    strcpy(buffer, "y");
    EXPECT_EQ(snprintf_s(buffer, size[0], size[1], "%d", 5), -1);
    EXPECT_STREQ(buffer, "") << size[0] << ' ' << size[1];
  }
  strcpy(buffer, "yyyyyyyyy");
  EXPECT_EQ(snprintf_s(buffer, 0, 0, "%d", 5), -1);
  EXPECT_EQ(sprintf_s(buffer, 0, "%d", 5), -1);
  EXPECT_STREQ(buffer, "yyyyyyyyy");
  EXPECT_EQ(snprintf_s(buffer, 8, SIZE_MAX, "%d", 5), 1);
  EXPECT_EQ(std::string(buffer, 9), std::string("5\0yyyyy\0y", 9));  // the last byte too is cleared
}

// What a caller of the engine can tell apart: no room for the text, none for the terminator, a wrong format.
TEST(FormatEngine, RoomAndResult) {
  const struct {
    size_t size;
    const char* format;
    int result;
    std::string left;
  } cases[] = {{8, "%s%%", 5, {"abcd%\0xxx", 9}},  {5, "%s%%", -2, {"abcd\0xxxx", 9}},
               {3, "%s%%", -2, {"ab\0xxxxxx", 9}}, {8, "%s%n", -1, {"abcdxxx\0x", 9}},
               {4, "%s%n", -1, {"abc\0xxxxx", 9}}, {3, "%s%n", -2, {"ab\0xxxxxx", 9}},
               {8, "%-9s", -2, {"abcd   \0x", 9}}};
  for (const auto& c : cases) {
    char buffer[] = "xxxxxxxxx";
    const auto print = [&buffer](size_t size, const char* format, ...) {
      va_list ap;
      va_start(ap, format);
      const int result = vsnprintf_helper(buffer, size, format, ap);
      va_end(ap);
      return result;
    };
    EXPECT_EQ(print(c.size, c.format, "abcd"), c.result) << c.format << ' ' << c.size;
    EXPECT_EQ(std::string(buffer, 9), c.left) << c.format << ' ' << c.size;
  }
}

TEST(FormatEngine, PrimitivesStopAtTheFirstByteWithoutRoom) {
  char buffer[] = "xxxxxxxx";
  OutputCursor out = {1, buffer};
  int written = 0;
  write_char_a('a', &out, &written);
  EXPECT_EQ(out.remaining, 0);
  out.remaining = 4;
  write_multi_char_a('b', 2, &out, &written);
  write_multi_char_a('c', 0, &out, &written);
  write_string_a("d", -1, &out, &written);
  EXPECT_EQ(written, 3);
  write_string_a("efgh", 4, &out, &written);
  EXPECT_EQ(written, -1);
  EXPECT_EQ(out.remaining, -1);
  EXPECT_EQ(out.cur, buffer + 5);
  write_multi_char_a('i', 3, &out, &written);
  EXPECT_EQ(out.remaining, -2);
  EXPECT_STREQ(buffer, "abbefxxx");
}

TEST(FormatEngine, WideTextInUtf8) {
  ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  constexpr wchar_t kLone[] = {0xD800, 0};  // half of a pair: no character
  EXPECT_EQ(Format("%4ls|%-4.2S|%ws|%C", L"äö", L"äöü", L"€", L'€'), "  äö|äö  |€|€");
  EXPECT_EQ(Format("a%8lcb%d", 0xD800, 5), "ab5");
  EXPECT_EQ(Format("a%-8lsb", kLone), "<error>");
  EXPECT_EQ(Print(64, 2, "%lsb", L"€"), (Printed{-1, "\xE2\x82"}));
}

TEST(FormatEngine, FloatBuffersFromTheHeap) {
  EXPECT_EQ(Format("%.300f%600.1f", 0.5, 2.5), "0.5" + std::string(299 + 597, '0').replace(299, 597, 597, ' ') + "2.5");
  // A platform prints what it does not know, however long; that is no number and has no room here.
  EXPECT_EQ(Format(("a%" + std::string(400, 'N') + "fb").c_str(), 0.5), "ab");
  EXPECT_EQ(Print(8192, 8191, "%Lf", 1.5e4000L).result, 4008);
#ifndef UNDER_SANITIZER
  const rlimit limit = {size_t{1} << 30, size_t{1} << 30};
  ASSERT_EQ(setrlimit(RLIMIT_AS, &limit), 0);
  EXPECT_EQ(Format("a%.*fb%*ec%d", 2000000000, 0.5, 2000000000, 0.5, 7), "abc7");
#endif
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
