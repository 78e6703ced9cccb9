// The configuration reader makes of every file what the model makes of it, and everything it made is released.
//
// Input that begins with "<" is the file; other bytes form one. It is written where the reader looks for it, hence only
// in a test device:  tests/test-device build/fuzz/fuzz_config build/fuzz/corpus fuzz/corpus/config

#include "config_model.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const void* parser = dlopen(ConfigModel::kLibrary, RTLD_LAZY);  // not loaded anew for every input
  const bool isDocument = parser != nullptr && size > 0 && *data == '<';
  const std::string difference = ConfigModel::Compare(
      isDocument ? std::string(reinterpret_cast<const char*>(data), size) : ConfigDocument(data, size).Text());
  if (!difference.empty()) {
    fprintf(stderr, "%s\n", difference.c_str());
    abort();
  }
  return 0;
}
