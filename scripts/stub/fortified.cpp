// Debian's static libraries were built against glibc, with bounds checked: they call these names, which musl lacks. For
// the build of the daemon with musl.

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

extern "C" {

void* __memmove_chk(void* to, const void* from, size_t size, size_t) {
  return memmove(to, from, size);
}

wchar_t* __wmemcpy_chk(wchar_t* to, const wchar_t* from, size_t count, size_t) {
  return wmemcpy(to, from, count);
}

wchar_t* __wmemmove_chk(wchar_t* to, const wchar_t* from, size_t count, size_t) {
  return wmemmove(to, from, count);
}

int __vsnprintf_chk(char* text, size_t size, int, size_t, const char* format, va_list arguments) {
  return vsnprintf(text, size, format, arguments);
}

int __snprintf_chk(char* text, size_t size, int, size_t, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(text, size, format, arguments);
  va_end(arguments);
  return length;
}

int __vfprintf_chk(FILE* stream, int, const char* format, va_list arguments) {
  return vfprintf(stream, format, arguments);
}

int __fprintf_chk(FILE* stream, int, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = vfprintf(stream, format, arguments);
  va_end(arguments);
  return length;
}
}
