// A fuzz target and its model, over inputs of random bytes.

#include <gtest/gtest.h>

#include <random>

#include "device.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);  // aborts when the model differs

TEST(Model, HoldsForRandomInputs) {
  std::mt19937 random(20241122);
  for (int i = Device::Rounds(MODEL_ROUNDS); i > 0; --i) {
    std::vector<uint8_t> bytes(MODEL_BYTES);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
}
