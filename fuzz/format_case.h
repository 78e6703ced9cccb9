#pragma once

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <type_traits>

#include "safestr/safestr.h"

/// A format with arguments, formed from arbitrary bytes, that both vsnprintf_s and the platform's vsnprintf define:
/// plain text and conversions with flags, widths, precisions, stars, sizes and values of every narrow type.
class FormatCase {
 public:
  FormatCase(const uint8_t* data, size_t size) : next_(data), end_(data + size) {
    size_choice_ = Number(8);
    while (next_ != end_ && text_.size() < 64) AddPart();
  }

  /// Prints the case by both. Gives what differs, an empty string when nothing does.
  std::string Compare() { return Expand(); }

 private:
  static constexpr size_t kMaxArguments = 4;
  static constexpr size_t kRoom = 16384;

  struct Argument {
    enum { kInt, kInt64, kDouble, kLongDouble, kString } kind;
    int64_t integer;
    long double real;
    std::string text;
  };

  // The little-endian number of the next bytes; 0 once there are none left.
  uint64_t Number(int bytes) {
    uint64_t number = 0;
    for (int i = 0; i < bytes && next_ != end_; ++i) number |= uint64_t{*next_++} << (8 * i);
    return number;
  }
  uint64_t Below(uint64_t limit) { return Number(limit > 256 ? 2 : 1) % limit; }

  Argument& NewArgument() { return arguments_[argument_count_++]; }

  void AddPart() {
    if (Below(3) != 0 && argument_count_ < kMaxArguments) return AddConversion();
    for (uint64_t length = Below(12); length > 0; --length) {
      const auto ch = static_cast<char>(Number(1));
      if (ch != '\0' && ch != '%') text_ += ch;
    }
    if (Below(8) == 0) text_ += "%%";
  }

  void AddConversion() {
    const char type = "diuoxXcspeEfFgG"[Below(15)];
    const bool integer = strchr("diuoxX", type) != nullptr;
    const bool real = strchr("eEfFgG", type) != nullptr;
    text_ += '%';
    const char* const flags = type == 'u'                  ? "-0"
                              : type == 'd' || type == 'i' ? "-+ 0"
                              : integer                    ? "-#0"
                              : real                       ? "-+ #0"
                                                           : "-";
    for (uint64_t count = Below(4); count > 0; --count) text_ += flags[Below(strlen(flags))];
    // A negative star aligns to the left everywhere but before a floating-point type.
    AddNumber(Below(16) == 0 ? 600 : 40, real ? 0 : -40);
    if (type != 'c' && type != 'p' && Below(2) == 0) {
      text_ += '.';
      AddNumber(Below(16) == 0 ? 512 : 40, -40);
    }
    if (integer) return AddInteger(type);
    if (real) return AddReal(type);
    text_ += type;
    Argument& argument = NewArgument();
    argument.kind = type == 'c' ? Argument::kInt : Argument::kString;
    argument.integer = static_cast<int64_t>(Number(1));
    for (uint64_t length = type == 's' ? Below(80) : 0; length > 0; --length) {
      argument.text += static_cast<char>(1 + Below(255));
    }
  }

  // Nothing, digits, or a star while an argument stays for the value.
  void AddNumber(int limit, int lowest_star) {
    const uint64_t shape = Below(4);
    if (shape == 0) return;
    const int value = static_cast<int>(Below(static_cast<uint64_t>(limit) + 1));
    if (shape < 3 || argument_count_ + 1 >= kMaxArguments) {
      if (value != 0 || text_.back() == '.') text_ += std::to_string(value);
      return;
    }
    text_ += '*';
    Argument& argument = NewArgument();
    argument.kind = Argument::kInt;
    argument.integer = Below(4) == 0 ? std::max(-value, lowest_star) : value;
  }

  void AddInteger(char type) {
    static constexpr const char* kSizes[] = {"", "hh", "h", "l", "ll", "j", "z", "t", "q", "L"};
    const uint64_t size = Below(10);
    text_ += kSizes[size];
    text_ += type;
    Argument& argument = NewArgument();
    argument.kind = size < 3 ? Argument::kInt : Argument::kInt64;
    argument.integer = static_cast<int64_t>(Number(1) << 63);  // the extremes often, and their neighbours
    argument.integer ^= static_cast<int64_t>(Number(static_cast<int>(Below(9))));
  }

  void AddReal(char type) {
    static constexpr const char* kSizes[] = {"", "l", "L"};
    const uint64_t size = Below(3);
    text_ += kSizes[size];
    text_ += type;
    Argument& argument = NewArgument();
    argument.kind = size < 2 ? Argument::kDouble : Argument::kLongDouble;
    const uint64_t bits = Number(8);
    double value;
    memcpy(&value, &bits, sizeof value);
    argument.real = Below(2) == 0 ? static_cast<long double>(value) : static_cast<long double>(bits) / 1000;
    if (size == 2) argument.real = ldexpl(argument.real, static_cast<int>(Below(20000)) - 10000);
  }

  // Turns the list of arguments into the arguments of a call, one more at each step.
  template <typename... Given>
  std::string Expand(Given... given) {
    constexpr size_t kCount = sizeof...(Given);
    if constexpr (kCount < kMaxArguments) {
      if (kCount < argument_count_) {
        const Argument& argument = arguments_[kCount];
        if (argument.kind == Argument::kInt) return Expand(given..., static_cast<int>(argument.integer));
        if (argument.kind == Argument::kInt64) return Expand(given..., argument.integer);
        if (argument.kind == Argument::kDouble) return Expand(given..., static_cast<double>(argument.real));
        if (argument.kind == Argument::kLongDouble) return Expand(given..., argument.real);
        return Expand(given..., static_cast<const void*>(argument.text.c_str()));
      }
    }
    return CompareCall(text_.c_str(), given...);
  }

  // The whole output, and output that ends at, before and after the end of the room.
  std::string CompareCall(const char* format, ...) {
    va_list ap;
    va_list again;
    va_start(ap, format);
    va_copy(again, ap);
    const int length = vsnprintf(expected_, sizeof expected_, format, again);
    va_end(again);
    std::string difference;
    if (length >= 0 && length < static_cast<int>(kRoom)) {
      const auto all = static_cast<size_t>(length);
      const size_t cut = size_choice_ % (all + 3);
      const size_t sizes[][2] = {{kRoom, kRoom - 1}, {all + 1, all},      {all + 1, SIZE_MAX}, {all + 2, cut},
                                 {cut + 1, cut},     {cut + 1, SIZE_MAX}, {cut + 1, cut + 1}};
      for (const auto& size : sizes) {
        va_copy(again, ap);
        if (difference.empty()) difference = ComparePrint(size[0], size[1], all, again);
        va_end(again);
      }
    }
    va_end(ap);
    return difference;
  }

  std::string ComparePrint(size_t dest_max, size_t count, size_t all, va_list ap) {
    static constexpr char kUntouched = '\x5A';
    memset(actual_, kUntouched, std::min(dest_max, all + 2));
    actual_[dest_max] = kUntouched;
    const int result = vsnprintf_s(actual_, dest_max, count, text_.c_str(), ap);
    const bool may_cut = count < dest_max;
    const bool fits = all <= (may_cut ? count : dest_max - 1);
    const size_t kept = fits ? all : may_cut ? count : 0;
    const bool same = result == (fits ? static_cast<int>(all) : -1) && memcmp(actual_, expected_, kept) == 0 &&
                      actual_[kept] == '\0' && actual_[dest_max] == kUntouched;
    if (same) return {};
    return "\"" + text_ + "\" into " + std::to_string(dest_max) + ", " + std::to_string(count) + ": " +
           std::to_string(result) + " \"" + std::string(actual_, strnlen(actual_, dest_max)) + "\" for \"" +
           std::string(expected_, all) + "\"";
  }

  const uint8_t* next_;
  const uint8_t* end_;
  uint64_t size_choice_;
  std::string text_;
  Argument arguments_[kMaxArguments];
  size_t argument_count_ = 0;
  char expected_[kRoom];
  char actual_[kRoom + 8];
};
