#include "safestr/safestr.h"

#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cstring>
#include <random>
#include <set>
#include <string>

#include "fault_injection.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);  // of fuzz_format

namespace {

constexpr size_t kMax = safestr::kMaxSize;

// The rules byte by byte, as they bind.

int Reset(char* dest, int code) {
  *dest = '\0';
  return code;
}

int CheckArguments(char* dest, size_t dest_max, const char* src) {
  if (dest_max == 0 || dest_max > kMax) return 34;
  if (dest == nullptr) return 22;
  return src == nullptr ? Reset(dest, 150) : 0;
}

int Copy(char* dest, size_t dest_max, const char* src, size_t count) {
  const int code = CheckArguments(dest, dest_max, src);
  if (code != 0) return code;
  const std::string copied(src, strnlen(src, std::min(count, dest_max)));
  const size_t moved = copied.size() + 1;
  if (count > kMax || moved > dest_max) return Reset(dest, 162);
  if (count != 0 && dest != src && dest < src + moved && src < dest + moved) return Reset(dest, 182);
  memcpy(dest, copied.c_str(), moved);
  return 0;
}

int Append(char* dest, size_t dest_max, const char* src) {
  const int code = CheckArguments(dest, dest_max, src);
  if (code != 0) return code;
  size_t length = 0;
  for (; length < dest_max && dest[length] != '\0'; ++length) {
    if (dest < src && dest + length == src) return Reset(dest, 182);
  }
  if (length == dest_max) return Reset(dest, 150);
  for (size_t j = 0;; ++j) {
    dest[length + j] = src[j];
    if (src[j] == '\0') return 0;
    if (length + j == dest_max - 1) return Reset(dest, 162);
    if (src <= dest ? src + j + 1 == dest : dest + length + j + 1 == src) return Reset(dest, 182);
  }
}

int Fill(char* dest, size_t dest_max, int c, size_t count) {
  const int code = dest_max == 0 && count == 0 && dest != nullptr ? 0 : CheckArguments(dest, dest_max, "");
  if (code == 0) memset(dest, c, std::min(count, dest_max));
  return code == 0 && count > dest_max ? 162 : code;
}

// Two strings anywhere in 16 bytes, or nowhere, with terminators anywhere.
TEST(BoundedString, DoesAsTheRulesSay) {
  constexpr size_t kCounts[] = {0, 1, 2, 3, 4, 9, kMax, kMax + 1, SIZE_MAX};
  std::mt19937 random(20241122);
  std::set<std::pair<int, int>> seen;
  for (int i = 0; i < 1500000; ++i) {
    const size_t to = random() % 17, from = random() % 17, count = kCounts[random() % 9];
    const size_t dest_max = random() % 16 == 0 ? kMax + 1 : random() % (17 - to % 16);
    char expected[] = "abcdefghijklmnop", actual[sizeof expected];
    for (char& byte : expected) byte = random() % 4 == 0 ? '\0' : byte;
    memcpy(actual, expected, sizeof expected);
    const auto call = [&](char* bytes, auto copy, auto append, auto fill) {
      char* const dest = to == 16 ? nullptr : bytes + to;
      const char* const src = from == 16 ? nullptr : bytes + from;
      if (i % 3 == 0) return copy(dest, dest_max, src, count);
      return i % 3 == 1 ? append(dest, dest_max, src) : fill(dest, dest_max, 0x100 + '!', count);
    };
    const int code = call(expected, Copy, Append, Fill);
    ASSERT_EQ(call(actual, strncpy_s, strcat_s, memset_s), code) << i;
    const size_t promised = i % 3 == 1 && to == from ? to + 1 : sizeof actual;  // appended to itself, the reset byte
    ASSERT_EQ(memcmp(actual, expected, promised), 0) << i;
    seen.insert({i % 3, code});
  }
  EXPECT_EQ(seen.size(), 16u);  // all codes of each
}

// What vsnprintf_s prints for a format that the compiler must not check, behind "-1 " when that is its result.
std::string Print(size_t count, const char* format, ...) {
  char buffer[8192];
  va_list ap;
  va_start(ap, format);
  const int result = vsnprintf_s(buffer, sizeof buffer, count, format, ap);
  va_end(ap);
  return (result < 0 ? std::to_string(result) + ' ' : "") + buffer;
}

TEST(BoundedPrint, WhereItIsNotThePlatforms) {
  ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  constexpr wchar_t kLone[] = {0xD800, 0};  // half of a pair: no character
  const std::string zeros(512, '0'), unknown = "a%" + std::string(400, 'N') + "fb";
  const struct {
    std::string actual, expected;
  } cases[] = {
      {Print(99, "%5I6%d|%Iq|%5-3d|%*5d|%.*5d|%.d|%I", 8, 7, 1, 42, -1, 42, 0), "I68|Iq|7  |             42|00042||I"},
      {Print(99, "%p|%p|%020p|%.9p|%08p", nullptr, 0x1234, 0x1234, 0x1234, nullptr),
       "(nil)|0x1234|0x000000000000001234|0x1234|   (nil)"},
      {Print(99, "%s|%.3s|%S|%hC", nullptr, nullptr, nullptr, 0x100 + 'h'), "(null)|(nu|(null)|h"},
      {Print(2000, "%.600d%.600o%.00000000000021474836d", 0, 8, 1),
       zeros + zeros.substr(2) + "10" + zeros.substr(1) + '1'},
      // A platform prints what it does not know, however long; that is no number and has no room here.
      {Print(99, unknown.c_str(), 0.5), "ab"},
      {Print(99, "<%*f|%*-*f>", -10, 1.5, 1, 2, 1.5), "<  1.500000|>"},
      {Print(99, "<%.*f|%.*Lf>%d", INT_MAX - 348, 1.5, INT_MAX - 4971, 1.5L, 7), "<|>7"},
      {Print(99, "%4ls|%-4.2S|%ws|%C|a%8lcb%d", L"äö", L"äöü", L"€", L'€', 0xD800, 5), "  äö|äö  |€|€|ab5"},
      {Print(99, "a%-8lsb", kLone), "-1 "},
      // Too long for the room, unless the format is wrong before that shows; the byte of the terminator is room.
      {Print(2, "%lsb", L"€"), "-1 \xE2\x82"},
      {Print(4, "%214748369d%n", 5), "-1     "},
      {Print(4, "%-*d%n", INT_MAX, 5), "-1 5   "},
      {Print(4, "%*d", INT_MIN, 5), "-1 5   "},
      {Print(4, "%.214748369s%n", "abcde"), "-1 "},
      {Print(4, "%.214748369s%n", "abcdef"), "-1 abcd"},
      {Print(4, nullptr), "-1 "},
  };
  for (const auto& c : cases) EXPECT_EQ(c.actual, c.expected);
  for (const char* format : {"%n",     "%a",   "%A",   "%5%",   "%-%",   "%l%",         "%5k",          "%",     "%5",
                             "text%-", "%.",   "%.5",  "%l",    "%1$d",  "%'d",         "%.-5d",        "%..5d", "%*",
                             "%.*",    "%5*d", "%l5d", "%h.5d", "%\x80", "%214748370d", "%.214748370d", "%*0d"}) {
    EXPECT_EQ(Print(99, format, INT_MAX), "-1 ") << format;
  }
}

TEST(BoundedPrint, Destinations) {
  char buffer[] = "xxxxxxxxx";
  EXPECT_EQ(snprintf_s(buffer, 0, 0, "%d", 5), -1);
  EXPECT_EQ(sprintf_s(buffer, 0, "%d", 5), -1);
  EXPECT_EQ(snprintf_s(nullptr, 8, 7, "%d", 5), -1);
  EXPECT_STREQ(buffer, "xxxxxxxxx");
  EXPECT_EQ(snprintf_s(buffer, 8, SIZE_MAX, "%d", 5), 1);
  EXPECT_EQ(std::string(buffer, 9), std::string("5\0xxxxx\0x", 9));  // the last byte too is cleared
  EXPECT_EQ(sprintf_s(buffer, 8, "%s-%d", "abcd", 123), -1);
  EXPECT_EQ(std::string(buffer, 9), std::string("\0bcd-12\0x", 9));
  constexpr size_t kRefused[][2] = {{kMax + 1, 7}, {8, kMax}, {8, SIZE_MAX - 1}};
  for (const auto& [dest_max, count] : kRefused) {
    EXPECT_EQ(sprintf_s(buffer, 8, "%d", 12), 2);
    EXPECT_EQ(snprintf_s(buffer, dest_max, count, "%d", 5), -1);
    EXPECT_STREQ(buffer, "") << dest_max << ' ' << count;
  }
}

TEST(BoundedPrint, LeavesOutWhatFindsNoMemory) {
  for (const int nth : {1, 2}) {  // for the specification, for the text
    const FailNthAllocation fault(nth);
    EXPECT_EQ(Print(99, "a%000000000000000.600fb%d", 0.5, 7), "ab7");
    EXPECT_TRUE(fault.happened());
  }
}

TEST(BoundedPrint, PrintsAsThePlatformDoes) {
  std::mt19937 random(20241122);
  for (int i = 0; i < 40000; ++i) {
    uint8_t bytes[40];
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    LLVMFuzzerTestOneInput(bytes, sizeof bytes);
  }
}

}  // namespace
