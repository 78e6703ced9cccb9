#include "quillog/bytes/file_identity.h"

#include <inttypes.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

namespace {

constexpr int kMostLines = 8;

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

/// True for a line with "21:04:05" or "21:4:5" in it.
bool HasTimeOfDay(const char* line, size_t size) {
  int colons = 0;
  for (size_t i = 1; i + 1 < size; ++i) {
    if (!IsDigit(line[i])) {
      const bool isBetween = line[i] == ':' && IsDigit(line[i - 1]) && IsDigit(line[i + 1]);
      colons = isBetween ? colons + 1 : 0;
    }
    if (colons == 2) {
      return true;
    }
  }
  return false;
}

/// The length of the beginning that makes the identity; 0 while it is not complete.
size_t DecisiveLength(const char* text, size_t size) {
  size_t at = 0;
  for (int lines = 0; lines < kMostLines; ++lines) {
    const auto* feed = static_cast<const char*>(memchr(text + at, '\n', size - at));
    if (feed == nullptr) {
      return size == kIdentityBytes ? size : 0;
    }
    const size_t start = at;
    at = static_cast<size_t>(feed - text) + 1;
    if (HasTimeOfDay(text + start, at - start)) {
      break;
    }
  }
  return at;
}

/// FNV-1a.
uint64_t Digest(const char* text, size_t size) {
  uint64_t digest = 0xcbf29ce484222325;
  for (size_t i = 0; i < size; ++i) {
    digest = (digest ^ static_cast<unsigned char>(text[i])) * 0x100000001b3;
  }
  return digest;
}

}  // namespace

std::string FileIdentity(const char* text, size_t size) {
  const size_t length = DecisiveLength(text, std::min(size, kIdentityBytes));
  if (length == 0) {
    return {};
  }
  char digits[17];
  snprintf(digits, sizeof digits, "%016" PRIx64, Digest(text, length));
  return digits;
}
