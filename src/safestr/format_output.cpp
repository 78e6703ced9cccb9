#include "safestr/format_output.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>

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

using ClassTable = std::array<CharClass, 256>;

constexpr ClassTable MakeClassTable() {
  ClassTable table{};
  constexpr struct {
    const char* characters;
    CharClass char_class;
  } kClasses[] = {
      {"%", kClassPercent},       {".", kClassDot},     {"*", kClassStar},           {"0", kClassZero},
      {"123456789", kClassDigit}, {" #+-", kClassFlag}, {"ILNZhjlqtwz", kClassSize}, {"CEFGSXcdefgiopsux", kClassType}};
  for (const auto& entry : kClasses) {
    for (const char* ch = entry.characters; *ch != '\0'; ++ch) table[static_cast<uint8_t>(*ch)] = entry.char_class;
  }
  return table;
}

constexpr ClassTable kClassOf = MakeClassTable();

enum Flags : uint32_t {
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
  kIntMax = 1U << 10,
  kSizeWidth = 1U << 11,
  kPtrDiff = 1U << 12,
  kWide = 1U << 13,
};

constexpr uint32_t kAny64Bit = kLong | k64Bit | kIntMax | kSizeWidth | kPtrDiff;

// Ten times more, and a digit, still fits an int.
constexpr int kLastExtensible = 21474836;
constexpr int kAbsent = -1;
constexpr int kLocalTextSize = 512;
constexpr size_t kLocalSpecSize = 16;

// The digits, and the letter of the prefix.
constexpr const char* kLowerDigits = "0123456789abcdefx";
constexpr const char* kUpperDigits = "0123456789ABCDEFX";
constexpr int kPrefixLetter = 16;

// Digits a floating-point value may have besides its precision: those before the point, and sign, point, exponent.
template <typename Real>
constexpr int kDigitsBesidesPrecision = 349;
template <>
constexpr int kDigitsBesidesPrecision<long double> = 4972;

// A platform that does not know a specification prints it, with numbers in the place of its stars.
constexpr size_t kEchoedStars = 32;

// Can be passed on by reference, which a va_list parameter can not.
struct Arguments {
  va_list list;
};

// Bytes of the object's own while they suffice, else from the heap.
template <size_t kLocalSize>
class ScratchBuffer {
 public:
  explicit ScratchBuffer(size_t size) : heap_(size <= kLocalSize ? nullptr : static_cast<char*>(malloc(size))) {
    data_ = size <= kLocalSize ? local_ : heap_;
  }
  ~ScratchBuffer() { free(heap_); }
  ScratchBuffer(const ScratchBuffer&) = delete;
  ScratchBuffer& operator=(const ScratchBuffer&) = delete;

  // Null: there was no memory.
  char* data() { return data_; }

 private:
  char* heap_;
  char* data_;
  char local_[kLocalSize];
};

struct Conversion {
  const char* start;  // its '%'
  uint32_t flags;
  int width;
  int precision;
  int stars_for_width;
  bool star_for_precision;
};

struct Prefix {
  char text[2];
  int length;
};

class Formatter {
 public:
  Formatter(OutputCursor* out, const char* format, va_list ap) : out_(out), next_(format) { va_copy(args_.list, ap); }
  ~Formatter() { va_end(args_.list); }
  Formatter(const Formatter&) = delete;
  Formatter& operator=(const Formatter&) = delete;

  int Run();

 private:
  // Actions of the states. Those that give bool find a number too large when false.
  void WriteLiteral();
  void StartConversion();
  State TakeAttribute(char ch, State before, State entered);
  void TakeFlag(char ch);
  bool TakeWidth(char ch, State before);
  bool TakePrecision(char ch);
  State TakeSize(char ch);
  State TakeBitSize();
  void Convert(char type);

  uint64_t ReadInteger(bool is_signed, bool* negative);
  void ConvertSigned();
  void ConvertUnsigned(char type);
  void ConvertPointer();
  void WriteInteger(uint64_t value, unsigned base, const char* digits, Prefix prefix);
  void ConvertChar(char type);
  void ConvertString(char type);
  void ConvertWideString();
  template <typename Real>
  void ConvertFloat(Real value);
  void CopySpecification(char* copy) const;
  template <typename Real>
  int PrintFloat(char* text, const char* specification, Real value) const;

  void WriteConversion(const char* text, int length, const Prefix& prefix);
  void WriteRun(const char* text, int length);
  void WritePad(char ch, int times);
  bool Has(uint32_t flags) const { return (conversion_.flags & flags) != 0; }

  OutputCursor* out_;
  const char* next_;  // format character to read next
  int written_ = 0;   // negative: the call has failed
  Conversion conversion_;
  Arguments args_;
};

int Formatter::Run() {
  State state = kNormal;
  while (*next_ != '\0' && written_ >= 0) {
    const char ch = *next_++;
    const State before = state;
    state = kTransitions[kClassOf[static_cast<uint8_t>(ch)]][before];
    // The states of a plain "%s" as branches of their own: processors predict them better than one jump to nine places.
    if (state == kNormal) {
      WriteLiteral();
    } else if (state == kPercent) {
      StartConversion();
    } else if (state == kType) {
      Convert(ch);
    } else {
      state = TakeAttribute(ch, before, state);
      if (state == kInvalid) return kFormatError;
    }
  }
  return state == kNormal || state == kType ? written_ : kFormatError;
}

// What stands between '%' and the type. Gives the state to go on in.
State Formatter::TakeAttribute(char ch, State before, State entered) {
  switch (entered) {
    case kFlag:
      TakeFlag(ch);
      return entered;
    case kWidth:
      return TakeWidth(ch, before) ? entered : kInvalid;
    case kDot:
      conversion_.precision = 0;
      return entered;
    case kPrecision:
      return TakePrecision(ch) ? entered : kInvalid;
    case kSize:
      return TakeSize(ch);
    default:
      return kInvalid;
  }
}

// Writes the character just read and all that follow it up to the next '%': in the normal state every other character
// leads to the normal state again.
void Formatter::WriteLiteral() {
  const char* const start = next_ - 1;
  while (*next_ != '\0' && *next_ != '%' && next_ - start < INT_MAX) ++next_;
  WriteRun(start, static_cast<int>(next_ - start));
}

void Formatter::StartConversion() {
  conversion_ = {next_ - 1, 0, 0, kAbsent, 0, false};
}

void Formatter::TakeFlag(char ch) {
  switch (ch) {
    case ' ':
      conversion_.flags |= kBlank;
      break;
    case '#':
      conversion_.flags |= kAlternate;
      break;
    case '+':
      conversion_.flags |= kPlus;
      break;
    case '-':
      conversion_.flags |= kLeft;
      break;
    default:
      conversion_.flags |= kZero;
      break;
  }
}

// Appends a decimal digit. False: the number is too large already.
bool ExtendNumber(int* number, char digit) {
  if (*number > kLastExtensible) return false;
  *number = *number * 10 + (digit - '0');
  return true;
}

bool Formatter::TakeWidth(char ch, State before) {
  if (ch != '*') {
    if (before != kWidth) conversion_.width = 0;
    return ExtendNumber(&conversion_.width, ch);
  }
  const int width = va_arg(args_.list, int);
  ++conversion_.stars_for_width;
  if (width < 0) conversion_.flags |= kLeft;
  // The magnitude of INT_MIN is no int; either is more than the largest destination holds.
  conversion_.width = width < 0 ? -std::max(width, -INT_MAX) : width;
  return true;
}

bool Formatter::TakePrecision(char ch) {
  if (ch != '*') {
    conversion_.precision = std::max(conversion_.precision, 0);
    return ExtendNumber(&conversion_.precision, ch);
  }
  conversion_.precision = std::max(va_arg(args_.list, int), kAbsent);
  conversion_.star_for_precision = true;
  return true;
}

State Formatter::TakeSize(char ch) {
  const bool doubled = *next_ == ch;
  switch (ch) {
    case 'h':
      conversion_.flags |= doubled ? kChar : kShort;
      if (doubled) ++next_;
      break;
    case 'l':
      conversion_.flags |= doubled ? k64Bit : kLong;
      if (doubled) ++next_;
      break;
    case 'L':
    case 'q':
      conversion_.flags |= k64Bit | kLongDouble;
      break;
    case 'j':
      conversion_.flags |= kIntMax;
      break;
    case 'z':
      conversion_.flags |= kSizeWidth;
      break;
    case 't':
      conversion_.flags |= kPtrDiff;
      break;
    case 'w':
      conversion_.flags |= kWide;
      break;
    case 'I':
      return TakeBitSize();
    default:  // N and Z say nothing
      break;
  }
  return kSize;
}

// The sizes "I64" and "I32", and "I" before an integer type; any other "I" is text and ends the conversion.
State Formatter::TakeBitSize() {
  const bool is_64 = strncmp(next_, "64", 2) == 0;
  if (is_64 || strncmp(next_, "32", 2) == 0) {
    conversion_.flags = is_64 ? conversion_.flags | k64Bit : conversion_.flags & ~uint32_t{k64Bit};
    next_ += 2;
    return kSize;
  }
  if (*next_ != '\0' && strchr("diouxX", *next_) != nullptr) {
    conversion_.flags |= k64Bit;
    return kSize;
  }
  WriteLiteral();
  return kNormal;
}

void Formatter::Convert(char type) {
  if (type == 's') return ConvertString(type);  // by far the most frequent
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
      if (Has(kLongDouble)) return ConvertFloat(va_arg(args_.list, long double));
      return ConvertFloat(va_arg(args_.list, double));
  }
}

// Gives the magnitude of the next argument.
uint64_t Formatter::ReadInteger(bool is_signed, bool* negative) {
  int64_t value;
  if (Has(kAny64Bit) && !Has(kChar | kShort)) {
    value = va_arg(args_.list, int64_t);
  } else {
    const int argument = va_arg(args_.list, int);
    if (Has(kChar)) {
      value = is_signed ? int64_t{static_cast<signed char>(argument)} : int64_t{static_cast<unsigned char>(argument)};
    } else if (Has(kShort)) {
      value = is_signed ? int64_t{static_cast<int16_t>(argument)} : int64_t{static_cast<uint16_t>(argument)};
    } else {
      value = is_signed ? int64_t{argument} : int64_t{static_cast<unsigned>(argument)};
    }
  }
  *negative = is_signed && value < 0;
  const auto bits = static_cast<uint64_t>(value);
  return *negative ? 0 - bits : bits;
}

void Formatter::ConvertSigned() {
  bool negative;
  const uint64_t value = ReadInteger(true, &negative);
  Prefix prefix = {{'-'}, 1};
  if (!negative) {
    prefix.text[0] = Has(kPlus) ? '+' : ' ';
    prefix.length = Has(kPlus | kBlank) ? 1 : 0;
  }
  WriteInteger(value, 10, kLowerDigits, prefix);
}

void Formatter::ConvertUnsigned(char type) {
  bool negative;
  const uint64_t value = ReadInteger(false, &negative);
  const char* const digits = type == 'X' ? kUpperDigits : kLowerDigits;
  if (type == 'u') return WriteInteger(value, 10, digits, {{}, 0});
  if (type == 'o') return WriteInteger(value, 8, digits, {{}, 0});
  const int prefix_length = Has(kAlternate) && value != 0 ? 2 : 0;
  WriteInteger(value, 16, digits, {{'0', digits[kPrefixLetter]}, prefix_length});
}

void Formatter::ConvertPointer() {
  const void* const pointer = va_arg(args_.list, void*);
  if (pointer == nullptr) {
    conversion_.flags &= ~uint32_t{kZero};
    return WriteConversion("(nil)", 5, {{}, 0});
  }
  // Precision is not for pointers: without one the zero flag stands.
  conversion_.precision = kAbsent;
  WriteInteger(reinterpret_cast<uintptr_t>(pointer), 16, kLowerDigits, {{'0', kLowerDigits[kPrefixLetter]}, 2});
}

// Writes the digits so that they end at `end`; gives their start. Zero has none. A constant base saves the division.
template <unsigned kBase>
char* PutDigits(char* end, uint64_t value, const char* digits) {
  for (; value != 0; value /= kBase) *--end = digits[value % kBase];
  return end;
}

void Formatter::WriteInteger(uint64_t value, unsigned base, const char* digits, Prefix prefix) {
  char buffer[kLocalTextSize];
  char* const end = buffer + sizeof buffer;
  char* text = base == 10   ? PutDigits<10>(end, value, digits)
               : base == 16 ? PutDigits<16>(end, value, digits)
                            : PutDigits<8>(end, value, digits);
  int precision = 1;
  if (conversion_.precision != kAbsent) {
    precision = std::min(conversion_.precision, kLocalTextSize);
    conversion_.flags &= ~uint32_t{kZero};
  }
  while (end - text < precision) *--text = '0';
  if (base == 8 && Has(kAlternate) && (text == end || *text != '0')) *--text = '0';
  WriteConversion(text, static_cast<int>(end - text), prefix);
}

// As wctomb, without the state that the C library shares between threads. Gives -1 for what does not convert.
int PutWide(char* bytes, wchar_t wide) {
  mbstate_t state{};
  return static_cast<int>(wcrtomb(bytes, wide, &state));
}

void Formatter::ConvertChar(char type) {
  conversion_.flags &= ~uint32_t{kZero};
  char bytes[MB_LEN_MAX];
  int length = 1;
  if (Has(kLong | kWide) || (type == 'C' && !Has(kShort))) {
    length = PutWide(bytes, static_cast<wchar_t>(va_arg(args_.list, wint_t)));
    if (length < 0) return;
  } else {
    bytes[0] = static_cast<char>(va_arg(args_.list, int));
  }
  WriteConversion(bytes, length, {{}, 0});
}

void Formatter::ConvertString(char type) {
  conversion_.flags &= ~uint32_t{kZero};
  if (Has(kLong | kWide) || type == 'S') return ConvertWideString();
  const char* text = va_arg(args_.list, const char*);
  if (text == nullptr) text = "(null)";
  const int limit = conversion_.precision == kAbsent ? INT_MAX : conversion_.precision;
  WriteConversion(text, static_cast<int>(strnlen(text, static_cast<size_t>(limit))), {{}, 0});
}

// Width and precision count wide characters, which may take several bytes each.
void Formatter::ConvertWideString() {
  const wchar_t* text = va_arg(args_.list, const wchar_t*);
  if (text == nullptr) text = L"(null)";
  const int limit = conversion_.precision == kAbsent ? INT_MAX : conversion_.precision;
  int length = 0;
  while (length < limit && text[length] != L'\0') ++length;

  const int pad = conversion_.width - length;
  if (!Has(kLeft)) WritePad(' ', pad);
  for (int i = 0; i < length && written_ >= 0; ++i) {
    char bytes[MB_LEN_MAX];
    const int size = PutWide(bytes, text[i]);
    if (size < 0) {
      written_ = kFormatError;
    } else {
      WriteRun(bytes, size);
    }
  }
  if (Has(kLeft) && written_ >= 0) WritePad(' ', pad);
}

// The platform prints the value, fill and all. What it can not print, or has no memory for, is left out.
template <typename Real>
void Formatter::ConvertFloat(Real value) {
  const char type = next_[-1];
  if (conversion_.precision == kAbsent) conversion_.precision = 6;
  if (conversion_.precision == 0 && (type == 'g' || type == 'G')) conversion_.precision = 1;
  if (conversion_.precision > INT_MAX - kDigitsBesidesPrecision<Real>) return;
  // A platform may take a second star for another argument, and there is none.
  if (conversion_.stars_for_width > 1) return;

  const int text_size = std::max(conversion_.precision + kDigitsBesidesPrecision<Real>, conversion_.width);
  const auto specification_length = static_cast<size_t>(next_ - conversion_.start);
  ScratchBuffer<kLocalSpecSize> specification(specification_length + 1);
  ScratchBuffer<kLocalTextSize> text(std::max(static_cast<size_t>(text_size), specification_length + kEchoedStars) + 1);
  if (specification.data() == nullptr || text.data() == nullptr) return;

  CopySpecification(specification.data());
  const int length = PrintFloat(text.data(), specification.data(), value);
  if (length >= 0 && length <= text_size) WriteRun(text.data(), length);
}

// As written, without the size `l` before a `double`: it means nothing there, but doubled some platforms read a
// `long double`.
void Formatter::CopySpecification(char* copy) const {
  for (const char* ch = conversion_.start; ch != next_; ++ch) {
    if (*ch != 'l' || Has(kLongDouble)) *copy++ = *ch;
  }
  *copy = '\0';
}

template <typename Real>
int Formatter::PrintFloat(char* text, const char* specification, Real value) const {
  const Conversion& given = conversion_;
  if (given.stars_for_width != 0) {
    return given.star_for_precision ? indirectSprintf(text, specification, given.width, given.precision, value)
                                    : indirectSprintf(text, specification, given.width, value);
  }
  return given.star_for_precision ? indirectSprintf(text, specification, given.precision, value)
                                  : indirectSprintf(text, specification, value);
}

void Formatter::WriteConversion(const char* text, int length, const Prefix& prefix) {
  const int pad = conversion_.width - (length + prefix.length);
  if (pad < 1 && prefix.length == 0) return WriteRun(text, length);
  if (!Has(kLeft | kZero)) WritePad(' ', pad);
  WriteRun(prefix.text, prefix.length);
  if (Has(kZero) && !Has(kLeft)) WritePad('0', pad);
  WriteRun(text, length);
  if (Has(kLeft)) WritePad(' ', pad);
}

void Formatter::WriteRun(const char* text, int length) {
  if (out_->remaining <= length) return write_string_a(text, length, out_, &written_);
  char* const to = out_->cur;
  if (length == 1) {  // a separator mostly, where the call would cost more than the byte
    *to = *text;
  } else {
    memcpy(to, text, static_cast<size_t>(length));
  }
  out_->cur = to + length;
  out_->remaining -= length;
  written_ += length;
}

void Formatter::WritePad(char ch, int times) {
  if (times < 1) return;
  if (out_->remaining <= times) return write_multi_char_a(ch, times, out_, &written_);
  memset(out_->cur, ch, static_cast<size_t>(times));
  out_->cur += times;
  out_->remaining -= times;
  written_ += times;
}

// How many of `wanted` bytes have room.
int Fitting(int wanted, const OutputCursor& out) {
  return std::max(0, std::min(wanted, out.remaining));
}

void Advance(int length, OutputCursor* out, int* written) {
  out->cur += length;
  out->remaining -= length;
  *written += length;
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
  if (times < 1) return;
  const int fitting = Fitting(times, *out);
  if (fitting > 0) memset(out->cur, ch, static_cast<size_t>(fitting));
  Advance(fitting, out, written);
  if (fitting < times) write_char_a(ch, out, written);
}

void write_string_a(const char* text, int length, OutputCursor* out, int* written) {
  if (length < 1) return;
  const int fitting = Fitting(length, *out);
  if (fitting > 0) memcpy(out->cur, text, static_cast<size_t>(fitting));
  Advance(fitting, out, written);
  if (fitting < length) write_char_a(text[fitting], out, written);
}

int indirectSprintf(char* buffer, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int length = PlatformVsprintf(buffer, 0, static_cast<size_t>(-1), format, ap);
  va_end(ap);
  return length;
}
