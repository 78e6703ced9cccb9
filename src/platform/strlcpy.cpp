#include "platform/string.h"

#ifdef QUILCAT_BRINGS_STRLCPY

size_t strlcpy(char* destination, const char* source, size_t size) {
  const size_t length = strlen(source);
  if (size > 0) {
    const size_t kept = length < size ? length : size - 1;
    memcpy(destination, source, kept);
    destination[kept] = '\0';
  }
  return length;
}

#endif
