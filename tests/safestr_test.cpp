#include "safestr/safestr.h"

#include <gtest/gtest.h>

#include <climits>
#include <clocale>
#include <cstring>
#include <random>
#include <sstream>
#include <string>

#include "fault_injection.h"

namespace {

constexpr size_t kMax = safestr::kMaxSize;

// What the rules say, byte by byte, for 'c'opy, 'a'ppend or 'f'ill.
int Model(char function, char* dest, size_t dest_max, const char* src, size_t count) {
  const auto reset = [&](int code) { return dest[0] = '\0', code; };
  if (function == 'f' && dest_max == 0 && count == 0 && dest != nullptr) return 0;
  if (dest_max == 0 || dest_max > kMax) return 34;
  if (dest == nullptr) return 22;
  if (function == 'f') return memset(dest, '!', std::min(count, dest_max)), count > dest_max ? 162 : 0;
  if (src == nullptr) return reset(150);
  if (function == 'c') {
    const std::string copied(src, strnlen(src, std::min(count, dest_max)));
    const size_t moved = copied.size() + 1;
    if (count > kMax || moved > dest_max) return reset(162);
    if (count != 0 && dest != src && dest < src + moved && src < dest + moved) return reset(182);
    return memcpy(dest, copied.c_str(), moved), 0;
  }
  size_t length = 0;
  for (; length < dest_max && dest[length] != '\0'; ++length)
    if (dest < src && dest + length == src) return reset(182);
  if (length == dest_max) return reset(150);
  for (size_t j = 0;; ++j) {
    dest[length + j] = src[j];
    if (src[j] == '\0') return 0;
    if (length + j == dest_max - 1) return reset(162);
    if (src <= dest ? src + j + 1 == dest : dest + length + j + 1 == src) return reset(182);
  }
}

// Two strings anywhere in 16 bytes, or nowhere, with terminators anywhere.
TEST(BoundedString, DoesAsTheRulesSay) {
  constexpr size_t kCounts[] = {0, 1, 2, 3, 4, 9, kMax, kMax + 1, SIZE_MAX};
  std::mt19937 random(20241122);
  for (int i = 0; i < 1500000; ++i) {
    const char function = "caf"[i % 3];
    const size_t to = random() % 17, from = random() % 17, count = kCounts[random() % 9];
    const size_t dest_max = random() % 16 == 0 ? kMax + 1 : random() % (17 - to % 16);
    char expected[] = "abcdefghijklmnop", actual[sizeof expected];
    for (char& byte : expected) byte = random() % 4 == 0 ? '\0' : byte;
    memcpy(actual, expected, sizeof expected);
    const auto at = [](char* bytes, size_t index) { return index == 16 ? nullptr : bytes + index; };
    char *const dest = at(actual, to), *const src = at(actual, from);
    const int code = Model(function, at(expected, to), dest_max, at(expected, from), count);
    const int result = function == 'c'   ? strncpy_s(dest, dest_max, src, count)
                       : function == 'a' ? strcat_s(dest, dest_max, src)
                                         : memset_s(dest, dest_max, 0x100 + '!', count);
    // Of a string appended to itself only the first byte is promised.
    const size_t promised = function == 'a' && to == from ? to + 1 : sizeof actual;
    ASSERT_TRUE(result == code && memcmp(actual, expected, promised) == 0) << i << ": " << result << ", not " << code;
  }
}

// What snprintf_s prints for a format that the compiler can not check, behind "-1 " when that is its result.
template <typename... Arguments>
std::string Print(size_t count, const char* format, Arguments... arguments) {
  char buffer[8192];
  const char* volatile hidden = format;  // from warnings about what is wrong for the platform
  const int result = snprintf_s(buffer, sizeof buffer, count, hidden, arguments...);
  return (result < 0 ? std::to_string(result) + ' ' : "") + buffer;
}

TEST(BoundedPrint, WhereItIsNotThePlatforms) {
  ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  auto* const pointer = reinterpret_cast<void*>(0x1234);
  const std::string zeros(512, '0'), unknown = "a%" + std::string(400, 'N') + "fb";
  const struct {
    std::string actual, expected;
  } cases[] = {
      {Print(99, "%5I6%d|%Iq|%5-3d|%*5d|%.*5d|%.d|%I", 8, 7, 1, 42, -1, 42, 0), "I68|Iq|7  |             42|00042||I"},
      {Print(99, "%p|%p|%020p|%.9p|%08p", nullptr, pointer, pointer, pointer, nullptr),
       "(nil)|0x1234|0x000000000000001234|0x1234|   (nil)"},
      {Print(99, "%s|%.3s|%S|%hC", nullptr, nullptr, nullptr, 0x100 + 'h'), "(null)|(nu|(null)|h"},
      {Print(2000, "%.600d%.600o%.00000000000021474836d", 0, 8, 1),
       zeros + zeros.substr(2) + "10" + zeros.substr(1) + '1'},
      // A platform prints what it does not know, however long; that is no number and has no room here.
      {Print(99, unknown.c_str(), 0.5), "ab"},
      {Print(99, "<%*f|%*-*f>%.*f%.*Lf", -10, 1.5, 1, 2, 1.5, INT_MAX - 348, 1.5, INT_MAX - 4971, 1.5L),
       "<  1.500000|>"},
      {Print(99, "%4ls|%-4.2S|%ws|%C|a%8lcb%d", L"äö", L"äöü", L"€", L'€', 0xD800, 5), "  äö|äö  |€|€|ab5"},
      {Print(99, "a%-8lsb", std::wstring(1, 0xD800).c_str()), "-1 "},  // half of a pair
      // Too long for the room, unless the format is wrong before that shows; the byte of the terminator is room.
      {Print(2, "%lsb", L"€"), "-1 \xE2\x82"},
      {Print(4, "%214748369d%n", 5), "-1     "},
      {Print(4, "%-*d%n", INT_MAX, 5), "-1 5   "},
      {Print(4, "%*d", INT_MIN, 5), "-1 5   "},
      {Print(4, "%.214748369s%n", "abcde"), "-1 "},
      {Print(4, "%.214748369s%n", "abcdef"), "-1 abcd"},
      {Print(4, nullptr, 5), "-1 "},
  };
  for (const auto& c : cases) EXPECT_EQ(c.actual, c.expected);
  std::istringstream wrong(
      "%n %a %A %5% %-% %l% %5k % %5 text%- %. %.5 %l %1$d %'d %.-5d %..5d %.5.d %* %.* %5*d %l5d %h.5d %\x80 "
      "%214748370d %.214748370d %*0d");
  for (std::string format; wrong >> format;) EXPECT_EQ(Print(99, format.c_str(), INT_MAX), "-1 ") << format;
}

TEST(BoundedPrint, Destinations) {
  char dest[] = "xxxx";
  EXPECT_TRUE(snprintf_s(dest, 0, 0, "%d", 5) == -1 && sprintf_s(dest, 0, "%d", 5) == -1);
  EXPECT_EQ(snprintf_s(nullptr, 4, 3, "%d", 5), -1);
  EXPECT_STREQ(dest, "xxxx");
  EXPECT_EQ(snprintf_s(dest, 4, SIZE_MAX, "%d", 5), 1);
  EXPECT_EQ(std::string(dest, 4), std::string("5\0x\0", 4));  // the last byte too is cleared
  constexpr size_t kRefused[][2] = {{kMax + 1, 3}, {4, kMax}, {4, SIZE_MAX - 1}};
  for (const auto& [dest_max, count] : kRefused) {
    EXPECT_EQ(sprintf_s(dest, 4, "%d", 123), 3);
    EXPECT_EQ(snprintf_s(dest, dest_max, count, "%d", 5), -1);
    EXPECT_EQ(std::string(dest, 4), std::string("\00023\0", 4)) << dest_max << ' ' << count;
  }
  EXPECT_EQ(sprintf_s(dest, 3, "%d", 456), -1);
  EXPECT_EQ(std::string(dest, 4), std::string("\0005\0\0", 4));
}

TEST(BoundedPrint, LeavesOutWhatFindsNoMemory) {
  for (const int nth : {1, 2}) {  // of the conversion as it is handed on, of its text
    const FailNthCall fault("allocation", nth);
    EXPECT_EQ(Print(99, "a%000000000000000.600fb%d", 0.5, 7), "ab7");
    EXPECT_TRUE(fault.happened());
  }
}

}  // namespace
