#include "common/utf8.h"

size_t Utf8Length(const char* bytes, size_t size) {
  const auto* text = reinterpret_cast<const unsigned char*>(bytes);
  const unsigned char c = text[0];
  const size_t length = c < 0x80                ? 1
                        : c >= 0xc2 && c < 0xe0 ? 2
                        : c >= 0xe0 && c < 0xf0 ? 3
                        : c >= 0xf0 && c < 0xf5 ? 4
                                                : 0;
  if (length == 0 || length > size) {
    return 0;
  }
  for (size_t i = 1; i < length; ++i) {
    if ((text[i] & 0xc0) != 0x80) {
      return 0;
    }
  }
  // Overlong forms, surrogates and what lies beyond Unicode.
  const bool isBad = (c == 0xe0 && text[1] < 0xa0) || (c == 0xed && text[1] > 0x9f) || (c == 0xf0 && text[1] < 0x90) ||
                     (c == 0xf4 && text[1] > 0x8f);
  return isBad ? 0 : length;
}
