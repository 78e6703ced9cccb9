#include "platform/property.h"

#include <string.h>

int property_get(const char* name, char* value, const char* defaultText) {
  const int length = __system_property_get(name, value);
  if (length >= 1 || defaultText == nullptr) {
    return length;
  }
  const size_t count = strnlen(defaultText, PROP_VALUE_MAX - 1);
  memcpy(value, defaultText, count);
  value[count] = '\0';
  return static_cast<int>(count);
}

int property_set(const char* name, const char* value) {
  return __system_property_set(name, value);
}
