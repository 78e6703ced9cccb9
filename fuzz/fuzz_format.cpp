// Whatever both the engine and the platform's vsnprintf define, they print alike.

#include <cstdio>
#include <cstdlib>

#include "format_case.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string difference = FormatCase(data, size).Compare();
  if (difference.empty()) return 0;
  fprintf(stderr, "%s\n", difference.c_str());
  abort();
}
