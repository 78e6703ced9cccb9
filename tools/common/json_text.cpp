#include "common/json_text.h"

#include <stdio.h>

#include <algorithm>

#include "common/utf8.h"

namespace {

/// True for what a JSON string holds as it is, one byte long.
bool IsPlain(char c) {
  return c >= 0x20 && c < 0x7f && c != '"' && c != '\\';
}

}  // namespace

void AppendJsonString(std::string& json, const char* text, size_t size) {
  json += '"';
  for (size_t i = 0; i < size;) {
    const char* plainEnd = std::find_if_not(text + i, text + size, IsPlain);
    json.append(text + i, plainEnd);
    i = static_cast<size_t>(plainEnd - text);
    if (i == size) {
      break;
    }
    const size_t length = Utf8Length(text + i, size - i);
    if (length == 0) {
      json += "\\ufffd";
      ++i;
      continue;
    }
    const auto c = static_cast<unsigned char>(text[i]);
    if (c == '"' || c == '\\') {
      json += '\\';
      json += text[i];
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
