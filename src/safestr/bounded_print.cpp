#include <cstdint>

#include "safestr/format_output.h"
#include "safestr/safestr.h"

namespace {

constexpr int kPrintError = -1;

bool IsPrintable(const char* dest, size_t destMax, const char* format) {
  return dest != nullptr && format != nullptr && destMax != 0 && destMax <= safestr::kMaxSize;
}

/// Leaves an empty string where there is a byte to hold it.
int Fail(char* dest, size_t destMax) {
  if (dest != nullptr && destMax != 0) {
    dest[0] = '\0';
  }
  return kPrintError;
}

}  // namespace

int vsnprintf_helper(char* dest, size_t size, const char* format, va_list ap) {
  OutputCursor out = {static_cast<int32_t>(size), dest};
  const int written = format_output_s(&out, format, ap);
  if (written >= 0 && out.remaining-- >= 1) {
    *out.cur = '\0';
    return written;
  }
  if (dest != nullptr) {
    dest[size - 1] = '\0';
  }
  return out.remaining < 0 ? kTruncated : kFormatError;
}

int vsprintf_s(char* dest, size_t destMax, const char* format, va_list ap) {
  if (!IsPrintable(dest, destMax, format)) {
    return Fail(dest, destMax);
  }
  const int written = vsnprintf_helper(dest, destMax, format, ap);
  return written >= 0 ? written : Fail(dest, destMax);
}

int vsnprintf_s(char* dest, size_t destMax, size_t count, const char* format, va_list ap) {
  const bool goodCount = count < safestr::kMaxSize || count == SIZE_MAX;
  if (!goodCount || !IsPrintable(dest, destMax, format)) {
    return Fail(dest, destMax);
  }

  if (count < destMax) {
    const int written = vsnprintf_helper(dest, count + 1, format, ap);
    if (written == kTruncated) {
      return kPrintError;
    }
    return written >= 0 ? written : Fail(dest, destMax);
  }
  const int written = vsnprintf_helper(dest, destMax, format, ap);
  dest[destMax - 1] = '\0';
  return written >= 0 ? written : Fail(dest, destMax);
}

int sprintf_s(char* dest, size_t destMax, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int written = vsprintf_s(dest, destMax, format, ap);
  va_end(ap);
  return written;
}

int snprintf_s(char* dest, size_t destMax, size_t count, const char* format, ...) {
  va_list ap;
  va_start(ap, format);
  const int written = vsnprintf_s(dest, destMax, count, format, ap);
  va_end(ap);
  return written;
}
