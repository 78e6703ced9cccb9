#include "config/records.h"

#include <stdlib.h>
#include <string.h>

#include "platform/property.h"
#include "safestr/safestr.h"

namespace QuilCommon {

char* CopyText(const char* text) {
  const size_t length = strlen(text);
  char* copy = static_cast<char*>(calloc(length + 1, 1));
  if (copy != nullptr && length > 0) {
    // The block may be larger than the size given: a text that does not fit into that many bytes is refused and left
    // empty.
    strncpy_s(copy, kLongestText + 1, text, length);
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

type_write WriteModeOfDevice(const PropertyLookUp& propertyIs) {
  const bool isFactory = propertyIs("ro.runmode", "factory") ||
                         (propertyIs("ro.build.type", "eng") && propertyIs("ro.build.version.vexa", ""));
  return isFactory ? WRITE_FACTORY : WRITE_MMAP;
}

}  // namespace QuilCommon
