// The configuration reader makes of every file what the model makes of it, and everything it made is released.
//
// Input that begins with "<" is a file of which only the release is checked; other bytes form one. It is written where
// the reader looks for it, hence only in a test device:  tests/test-device build/fuzz/fuzz_config build/fuzz/corpus

#include <dlfcn.h>

#include "config_case.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static void* parser = dlopen("/system/lib64/libxml2.so", RTLD_LAZY);  // not loaded anew for every input
  std::string difference = parser == nullptr ? "no parser: run it in a test device" : "";
  if (size > 0 && *data == '<') {
    std::ofstream(ConfigCase::kPath).write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    const std::string outcome = ConfigCase::Fill(QuilConfig::parse_config_file, "s");
    difference += outcome.substr(2) == "not released" ? outcome : "";
  } else {
    difference += ConfigCase(data, size, 64).Compare();
  }
  if (!difference.empty()) {
    fprintf(stderr, "%s\n", difference.c_str());
    abort();
  }
  return 0;
}
