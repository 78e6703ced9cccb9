#include "config/records.h"

#include <stdlib.h>
#include <string.h>

#include "platform/property.h"
#include "safestr/safestr.h"

namespace QuilCommon {

constexpr size_t kTextSize = 256;

char* CopyText(const char* text) {
  const size_t length = strlen(text);
  char* copy = static_cast<char*>(calloc(length + 1, 1));
  if (copy != nullptr && length > 0) {
    // The block may be larger than `size`: a text that does not fit into that many bytes is refused and left empty.
    strncpy_s(copy, kTextSize, text, length);
  }
  return copy;
}

void ReadNumber(const char* text, size_t* field) {
  const auto number = static_cast<int>(strtol(text, nullptr, 10));
  if (number >= 0) {
    *field = static_cast<size_t>(number);
  }
}

bool PropertyIs(const char* name, const char* expected) {
  char value[PROP_VALUE_MAX] = {};
  property_get(name, value, "");
  return strcmp(value, expected) == 0;
}

type_write WriteModeOfDevice() {
  if (PropertyIs("ro.runmode", "factory")) {
    return WRITE_FACTORY;
  }
  const bool engineering = PropertyIs("ro.build.type", "eng") && PropertyIs("ro.build.version.vexa", "");
  return engineering ? WRITE_FACTORY : WRITE_MMAP;
}

}  // namespace QuilCommon
