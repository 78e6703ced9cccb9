#include "common/json_text.h"

#include <stdio.h>

#include <algorithm>

namespace {

/// True for what a JSON string holds as it is, one byte long.
bool IsPlain(char c) {
  return c >= 0x20 && c < 0x7f && c != '"' && c != '\\';
}

/// The length of the UTF-8 sequence (RFC 3629) that `text` begins with; 0 for bytes that are none.
size_t SequenceLength(const unsigned char* text, size_t size) {
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

}  // namespace

void AppendJsonString(std::string& json, const char* text, size_t size) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text);
  json += '"';
  for (size_t i = 0; i < size;) {
    const char* plainEnd = std::find_if_not(text + i, text + size, IsPlain);
    json.append(text + i, plainEnd);
    i = static_cast<size_t>(plainEnd - text);
    if (i == size) {
      break;
    }
    const size_t length = SequenceLength(bytes + i, size - i);
    if (length == 0) {
      json += "\\ufffd";
      ++i;
      continue;
    }
    const unsigned char c = bytes[i];
    if (c == '"' || c == '\\') {
      json += '\\';
      json += static_cast<char>(c);
    } else if (c < 0x20) {
      char escape[8];
      snprintf(escape, sizeof escape, "\\u%04x", c);
      json += escape;
    } else {
      json.append(text + i, length);
    }
    i += length;
  }
  json += '"';
}
