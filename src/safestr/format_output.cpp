#include "safestr/format_output.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string_view>

// The fortified entry of libc, under a name of our own: some headers declare it, others do not.
extern "C" int PlatformVsprintf(char* buffer, int flag, size_t size, const char* format,
                                va_list ap) __asm__("__vsprintf_chk");

namespace {

enum State : uint8_t { kNormal, kPercent, kFlag, kWidth, kDot, kPrecision, kSize, kType, kInvalid, kStateCount };

enum CharClass : uint8_t {
  kClassOther,
  kClassPercent,
  kClassDot,
  kClassStar,
  kClassZero,
  kClassDigit,
  kClassFlag,
  kClassSize,
  kClassType,
  kClassCount
};

// The state after a character, by its class and the state before.
constexpr State kTransitions[kClassCount][kStateCount] = {
    // Normal, Percent, Flag, Width, Dot, Precision, Size, Type, Invalid
    {kNormal, kInvalid, kInvalid, kInvalid, kInvalid, kInvalid, kInvalid, kNormal, kNormal},   // other
    {kPercent, kNormal, kInvalid, kInvalid, kInvalid, kInvalid, kInvalid, kPercent, kNormal},  // percent
    {kNormal, kDot, kDot, kDot, kInvalid, kInvalid, kInvalid, kNormal, kNormal},               // dot
    {kNormal, kWidth, kWidth, kInvalid, kPrecision, kInvalid, kInvalid, kNormal, kNormal},     // star
    {kNormal, kFlag, kFlag, kWidth, kPrecision, kPrecision, kInvalid, kNormal, kNormal},       // zero
    {kNormal, kWidth, kWidth, kWidth, kPrecision, kPrecision, kInvalid, kNormal, kNormal},     // digit
    {kNormal, kFlag, kFlag, kFlag, kInvalid, kInvalid, kInvalid, kNormal, kNormal},            // flag
    {kNormal, kSize, kSize, kSize, kSize, kSize, kSize, kNormal, kNormal},                     // size
    {kNormal, kType, kType, kType, kType, kType, kType, kNormal, kNormal},                     // type
};

enum Flags : uint16_t {
  kBlank = 1U << 0,
  kAlternate = 1U << 1,
  kPlus = 1U << 2,
  kLeft = 1U << 3,
  kZero = 1U << 4,
  kShort = 1U << 5,
  kChar = 1U << 6,
  kLong = 1U << 7,
  k64Bit = 1U << 8,
  kLongDouble = 1U << 9,
  kWord = 1U << 10,  // the types of 64 bits that no "I32" narrows
  kWide = 1U << 11,
};

constexpr unsigned kAny64Bit = kLong | k64Bit | kWord;

/// What a character means between '%' and the type.
struct Meaning {
  CharClass charClass;
  uint16_t flags;  // to be set
};

using MeaningTable = std::array<Meaning, 256>;

constexpr MeaningTable MakeMeanings() {
  constexpr struct {
    const char* characters;
    Meaning meaning;
  } kMeanings[] = {
      {"%", {kClassPercent, 0}},       {".", {kClassDot, 0}},
      {"*", {kClassStar, 0}},          {"0", {kClassZero, kZero}},
      {"123456789", {kClassDigit, 0}}, {" ", {kClassFlag, kBlank}},
      {"#", {kClassFlag, kAlternate}}, {"+", {kClassFlag, kPlus}},
      {"-", {kClassFlag, kLeft}},      {"h", {kClassSize, kShort}},
      {"l", {kClassSize, kLong}},      {"Lq", {kClassSize, k64Bit | kLongDouble}},
      {"jtz", {kClassSize, kWord}},    {"w", {kClassSize, kWide}},
      {"INZ", {kClassSize, 0}},        {"CEFGSXcdefgiopsux", {kClassType, 0}},
  };
  MeaningTable table{};
  for (const auto& entry : kMeanings) {
    for (const char* ch = entry.characters; *ch != '\0'; ++ch) {
      table[static_cast<uint8_t>(*ch)] = entry.meaning;
    }
  }
  return table;
}

constexpr MeaningTable kMeaningOf = MakeMeanings();

// Ten times that plus a digit still fits an int.
constexpr int kLastExtensible = 21474836;
constexpr int kAbsent = -1;
constexpr int kLocalTextSize = 512;
constexpr size_t kLocalSpecSize = 16;

constexpr const char* kLowerDigits = "0123456789abcdef";
constexpr const char* kUpperDigits = "0123456789ABCDEF";

/// Digits a floating-point value may have besides its precision: those before the point, and sign, point, exponent.
template <typename Real>
constexpr int kDigitsBesidesPrecision = 349;
template <>
constexpr int kDigitsBesidesPrecision<long double> = 4972;

// A platform that does not know a specification prints it, with numbers in place of its stars.
constexpr size_t kEchoedStars = 32;

/// Memory inside the object while it suffices, otherwise from the heap.
template <size_t kLocalSize>
class ScratchBuffer {
 public:
  explicit ScratchBuffer(size_t size) : bytes(size <= kLocalSize ? local : static_cast<char*>(malloc(size))) {}
  ~ScratchBuffer() {
    if (bytes != local) {
      free(bytes);
    }
  }
  ScratchBuffer(const ScratchBuffer&) = delete;
  ScratchBuffer& operator=(const ScratchBuffer&) = delete;

  // Null: there was no memory.
  char* data() { return bytes; }

 private:
  char* bytes;
  char local[kLocalSize];
};

struct Conversion {
  const char* start;  // its '%'
  unsigned flags;
  int width;
  int precision;
  int starsForWidth;
  bool starForPrecision;
};

void Advance(int length, OutputCursor* out, int* written) {
  out->cur += length;
  out->remaining -= length;
  *written += length;
}

class Formatter {
 public:
  Formatter(OutputCursor* cursor, const char* format, va_list given) : out(cursor), next(format) {
    va_copy(arguments, given);
  }
  ~Formatter() { va_end(arguments); }
  Formatter(const Formatter&) = delete;
  Formatter& operator=(const Formatter&) = delete;

  int Run();

 private:
  void WriteLiteral();
  State TakeAttribute(char ch, State before, State entered);
  /// False: the number is too large.
  bool TakeWidth(char ch, State before);
  bool TakePrecision(char ch);
  State TakeSize(char ch);
  State TakeBitSize();
  void Convert(char type);

  int64_t ReadInteger(bool isSigned);
  void ConvertSigned();
  void ConvertUnsigned(char type);
  void ConvertPointer();
  template <unsigned kBase>
  void WriteInteger(uint64_t value, std::string_view prefix, const char* digits = kLowerDigits);
  void ConvertChar(char type);
  void ConvertString(char type);
  void ConvertWideString();
  template <typename Real>
  void ConvertFloat(Real value);
  void CopySpecification(char* copy) const;
  template <typename Real>
  int PrintFloat(char* text, const char* specification, Real value) const;

  void WriteConversion(std::string_view text, std::string_view prefix = "");
  void WriteRun(std::string_view text);
  void WritePad(char ch, int times) { write_multi_char_a(ch, times, out, &written); }
  bool Has(unsigned flags) const { return (conversion.flags & flags) != 0; }

  OutputCursor* out;
  const char* next;  // format character to read next
  int written = 0;   // negative: the call has failed
  Conversion conversion;
  va_list arguments;
};

int Formatter::Run() {
  State state = kNormal;
  while (*next != '\0' && written >= 0) {
    const char ch = *next++;
    const State before = state;
    state = kTransitions[kMeaningOf[static_cast<uint8_t>(ch)].charClass][before];
    // The states of a plain "%s" have branches of their own: processors predict them better than one jump to nine
    // places.
    if (state == kNormal) {
      WriteLiteral();
    } else if (state == kPercent) {
      conversion = {next - 1, 0, 0, kAbsent, 0, false};
    } else if (state == kType) {
      Convert(ch);
    } else {
      state = TakeAttribute(ch, before, state);
      if (state == kInvalid) {
        return kFormatError;
      }
    }
  }
  return state == kNormal || state == kType ? written : kFormatError;
}

/// Reads a character between '%' and the type. Returns the next state.
State Formatter::TakeAttribute(char ch, State before, State entered) {
  switch (entered) {
    case kFlag:
      conversion.flags |= kMeaningOf[static_cast<uint8_t>(ch)].flags;
      return entered;
    case kWidth:
      return TakeWidth(ch, before) ? entered : kInvalid;
    case kDot:
      conversion.precision = 0;
      return entered;
    case kPrecision:
      return TakePrecision(ch) ? entered : kInvalid;
    case kSize:
      return TakeSize(ch);
    default:
      return kInvalid;
  }
}

/// Writes the character just read and all that follow it up to the next '%': in the normal state every other character
/// leads to the normal state again.
void Formatter::WriteLiteral() {
  const char* const start = next - 1;
  while (*next != '\0' && *next != '%' && next - start < INT_MAX) {
    ++next;
  }
  WriteRun({start, static_cast<size_t>(next - start)});
}

/// Appends a decimal digit. False: the number is too large already.
bool ExtendNumber(int* number, char digit) {
  if (*number > kLastExtensible) {
    return false;
  }
  *number = *number * 10 + (digit - '0');
  return true;
}

bool Formatter::TakeWidth(char ch, State before) {
  if (ch != '*') {
    if (before != kWidth) {
      conversion.width = 0;
    }
    return ExtendNumber(&conversion.width, ch);
  }
  const int width = va_arg(arguments, int);
  ++conversion.starsForWidth;
  if (width < 0) {
    conversion.flags |= kLeft;
  }
  // The magnitude of INT_MIN is no int; either is more than the largest destination holds.
  conversion.width = width < 0 ? -std::max(width, -INT_MAX) : width;
  return true;
}

bool Formatter::TakePrecision(char ch) {
  if (ch != '*') {
    conversion.precision = std::max(conversion.precision, 0);
    return ExtendNumber(&conversion.precision, ch);
  }
  conversion.precision = std::max(va_arg(arguments, int), kAbsent);
  conversion.starForPrecision = true;
  return true;
}

State Formatter::TakeSize(char ch) {
  if (ch == 'I') {
    return TakeBitSize();
  }
  if (*next != ch || (ch != 'h' && ch != 'l')) {
    conversion.flags |= kMeaningOf[static_cast<uint8_t>(ch)].flags;
    return kSize;
  }
  ++next;
  conversion.flags |= ch == 'h' ? kChar : k64Bit;
  return kSize;
}

/// The sizes "I64" and "I32", and "I" before an integer type; any other "I" is text and ends the conversion.
State Formatter::TakeBitSize() {
  const bool is64 = strncmp(next, "64", 2) == 0;
  if (is64 || strncmp(next, "32", 2) == 0) {
    conversion.flags = is64 ? conversion.flags | k64Bit : conversion.flags & ~unsigned{k64Bit};
    next += 2;
    return kSize;
  }
  if (*next != '\0' && strchr("diouxX", *next) != nullptr) {
    conversion.flags |= k64Bit;
    return kSize;
  }
  WriteLiteral();
  return kNormal;
}

void Formatter::Convert(char type) {
  if (type == 's') {
    return ConvertString(type);  // by far the most frequent
  }
  switch (type) {
    case 'd':
    case 'i':
      return ConvertSigned();
    case 'u':
    case 'o':
    case 'x':
    case 'X':
      return ConvertUnsigned(type);
    case 'p':
      return ConvertPointer();
    case 'c':
    case 'C':
      return ConvertChar(type);
    case 'S':
      return ConvertString(type);
    default:  // a floating-point type
      if (Has(kLongDouble)) {
        return ConvertFloat(va_arg(arguments, long double));
      }
      return ConvertFloat(va_arg(arguments, double));
  }
}

int64_t Formatter::ReadInteger(bool isSigned) {
  if (Has(kAny64Bit) && !Has(kChar | kShort)) {
    return va_arg(arguments, int64_t);
  }
  const int argument = va_arg(arguments, int);
  if (Has(kChar)) {
    return isSigned ? static_cast<signed char>(argument) : static_cast<unsigned char>(argument);
  }
  if (Has(kShort)) {
    return isSigned ? static_cast<int16_t>(argument) : static_cast<uint16_t>(argument);
  }
  return isSigned ? argument : int64_t{static_cast<unsigned>(argument)};
}

void Formatter::ConvertSigned() {
  const int64_t value = ReadInteger(true);
  const auto bits = static_cast<uint64_t>(value);
  if (value < 0) {
    return WriteInteger<10>(0 - bits, "-");
  }
  WriteInteger<10>(bits, Has(kPlus) ? "+" : Has(kBlank) ? " " : "");
}

void Formatter::ConvertUnsigned(char type) {
  const auto value = static_cast<uint64_t>(ReadInteger(false));
  if (type == 'u') {
    return WriteInteger<10>(value, "");
  }
  if (type == 'o') {
    return WriteInteger<8>(value, "");
  }
  const bool hasPrefix = Has(kAlternate) && value != 0;
  if (type == 'x') {
    return WriteInteger<16>(value, hasPrefix ? "0x" : "");
  }
  WriteInteger<16>(value, hasPrefix ? "0X" : "", kUpperDigits);
}

void Formatter::ConvertPointer() {
  const void* const pointer = va_arg(arguments, void*);
  if (pointer == nullptr) {
    conversion.flags &= ~unsigned{kZero};
    return WriteConversion("(nil)");
  }
  // Pointers have no precision, so the zero flag stays in force.
  conversion.precision = kAbsent;
  WriteInteger<16>(reinterpret_cast<uintptr_t>(pointer), "0x");
}

/// A base known to the compiler saves the divisions.
template <unsigned kBase>
void Formatter::WriteInteger(uint64_t value, std::string_view prefix, const char* digits) {
  char buffer[kLocalTextSize];
  char* const end = buffer + sizeof buffer;
  char* text = end;
  for (; value != 0; value /= kBase) {
    *--text = digits[value % kBase];
  }
  int precision = 1;
  if (conversion.precision != kAbsent) {
    precision = std::min(conversion.precision, kLocalTextSize);
    conversion.flags &= ~unsigned{kZero};
  }
  while (end - text < precision) {
    *--text = '0';
  }
  if (kBase == 8 && Has(kAlternate) && (text == end || *text != '0')) {
    *--text = '0';
  }
  WriteConversion({text, static_cast<size_t>(end - text)}, prefix);
}

/// Like wctomb, without the state that the C library shares between threads. Returns -1 for what does not convert.
int PutWide(char* bytes, wchar_t wide) {
  mbstate_t state{};
  return static_cast<int>(wcrtomb(bytes, wide, &state));
}

void Formatter::ConvertChar(char type) {
  conversion.flags &= ~unsigned{kZero};
  char bytes[MB_LEN_MAX];
  int length = 1;
  if (Has(kLong | kWide) || (type == 'C' && !Has(kShort))) {
    length = PutWide(bytes, static_cast<wchar_t>(va_arg(arguments, wint_t)));
    if (length < 0) {
      return;
    }
  } else {
    bytes[0] = static_cast<char>(va_arg(arguments, int));
  }
  WriteConversion({bytes, static_cast<size_t>(length)});
}

void Formatter::ConvertString(char type) {
  conversion.flags &= ~unsigned{kZero};
  if (Has(kLong | kWide) || type == 'S') {
    return ConvertWideString();
  }
  const char* text = va_arg(arguments, const char*);
  if (text == nullptr) {
    text = "(null)";
  }
  const int limit = conversion.precision == kAbsent ? INT_MAX : conversion.precision;
  WriteConversion({text, strnlen(text, static_cast<size_t>(limit))});
}

/// Width and precision count wide characters, which may take several bytes each.
void Formatter::ConvertWideString() {
  const wchar_t* text = va_arg(arguments, const wchar_t*);
  if (text == nullptr) {
    text = L"(null)";
  }
  const int limit = conversion.precision == kAbsent ? INT_MAX : conversion.precision;
  int length = 0;
  while (length < limit && text[length] != L'\0') {
    ++length;
  }

  const int pad = conversion.width - length;
  if (!Has(kLeft)) {
    WritePad(' ', pad);
  }
  for (int i = 0; i < length && written >= 0; ++i) {
    char bytes[MB_LEN_MAX];
    const int size = PutWide(bytes, text[i]);
    if (size < 0) {
      written = kFormatError;
    } else {
      WriteRun({bytes, static_cast<size_t>(size)});
    }
  }
  if (Has(kLeft) && written >= 0) {
    WritePad(' ', pad);
  }
}

/// The platform prints the value, fill and all. What it can not print, or has no memory for, is left out.
template <typename Real>
void Formatter::ConvertFloat(Real value) {
  const char type = next[-1];
  if (conversion.precision == kAbsent) {
    conversion.precision = 6;
  }
  if (conversion.precision == 0 && (type == 'g' || type == 'G')) {
    conversion.precision = 1;
  }
  if (conversion.precision > INT_MAX - kDigitsBesidesPrecision<Real>) {
    return;
  }
  // A platform may take a second star for another argument, and there is none.
  if (conversion.starsForWidth > 1) {
    return;
  }

  const int textSize = std::max(conversion.precision + kDigitsBesidesPrecision<Real>, conversion.width);
  const auto specificationLength = static_cast<size_t>(next - conversion.start);
  ScratchBuffer<kLocalSpecSize> specification(specificationLength + 1);
  ScratchBuffer<kLocalTextSize> text(std::max(static_cast<size_t>(textSize), specificationLength + kEchoedStars) + 1);
  if (specification.data() == nullptr || text.data() == nullptr) {
    return;
  }

  CopySpecification(specification.data());
  const int length = PrintFloat(text.data(), specification.data(), value);
  if (length >= 0 && length <= textSize) {
    WriteRun({text.data(), static_cast<size_t>(length)});
  }
}

/// The conversion as it is in the format, but without the size `l` before a `double`: it means nothing there, and
/// doubled, some platforms take it for a `long double`.
void Formatter::CopySpecification(char* copy) const {
  for (const char* ch = conversion.start; ch != next; ++ch) {
    if (*ch != 'l' || Has(kLongDouble)) {
      *copy++ = *ch;
    }
  }
  *copy = '\0';
}

template <typename Real>
int Formatter::PrintFloat(char* text, const char* specification, Real value) const {
  const Conversion& given = conversion;
  if (given.starsForWidth != 0) {
    return given.starForPrecision ? indirectSprintf(text, specification, given.width, given.precision, value)
                                  : indirectSprintf(text, specification, given.width, value);
  }
  return given.starForPrecision ? indirectSprintf(text, specification, given.precision, value)
                                : indirectSprintf(text, specification, value);
}

void Formatter::WriteConversion(std::string_view text, std::string_view prefix) {
  const int pad = conversion.width - static_cast<int>(text.size() + prefix.size());
  if (pad < 1 && prefix.empty()) {
    return WriteRun(text);
  }
  if (!Has(kLeft | kZero)) {
    WritePad(' ', pad);
  }
  WriteRun(prefix);
  if (Has(kZero) && !Has(kLeft)) {
    WritePad('0', pad);
  }
  WriteRun(text);
  if (Has(kLeft)) {
    WritePad(' ', pad);
  }
}

void Formatter::WriteRun(std::string_view text) {
  const int length = static_cast<int>(text.size());
  if (out->remaining <= length) {
    return write_string_a(text.data(), length, out, &written);
  }
  char* const to = out->cur;
  Advance(length, out, &written);  // before the copy: after it a compiler has to read the cursor again
  if (length == 1) {               // a separator mostly, where the call would cost more than the byte
    *to = text[0];
  } else {
    memcpy(to, text.data(), text.size());
  }
}

}  // namespace

int format_output_s(OutputCursor* out, const char* format, va_list ap) {
  return Formatter(out, format, ap).Run();
}

void write_char_a(char ch, OutputCursor* out, int* written) {
  if (out->remaining-- < 1) {
    *written = -1;
    return;
  }
  *out->cur++ = ch;
  ++*written;
}

// Both primitives for runs write what has room and leave the first byte without any to write_char_a, which fails.

void write_multi_char_a(char ch, int times, OutputCursor* out, int* written) {
  const int fitting = std::clamp(times, 0, std::max(out->remaining, 0));
  memset(out->cur, ch, static_cast<size_t>(fitting));
  Advance(fitting, out, written);
  if (fitting < times) {
    write_char_a(ch, out, written);
  }
}

void write_string_a(const char* text, int length, OutputCursor* out, int* written) {
  const int fitting = std::clamp(length, 0, std::max(out->remaining, 0));
  memcpy(out->cur, text, static_cast<size_t>(fitting));
  Advance(fitting, out, written);
  if (fitting < length) {
    write_char_a(text[fitting], out, written);
  }
}

int indirectSprintf(char* buffer, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int length = PlatformVsprintf(buffer, 0, static_cast<size_t>(-1), format, ap);
  va_end(ap);
  return length;
}
