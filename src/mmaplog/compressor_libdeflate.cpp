#include <libdeflate.h>

#include "mmaplog/compressor.h"

namespace {

// Kernel lines become 5 % smaller than by zlib's best level, rows of numbers up to 2 % larger, 4 % at level 6. With
// level 8 no text that was tried is larger, for nearly twice the CPU.
constexpr int kLevel = 7;

// Of a member's header: the two bytes that tell which level and which system it is of.
constexpr size_t kHeaderLevel = 8, kHeaderSystem = 9;

}  // namespace

Compressor::~Compressor() {
  libdeflate_free_compressor(static_cast<libdeflate_compressor*>(state));
}

bool Compressor::SetUp() {
  if (state == nullptr) {
    state = libdeflate_alloc_compressor(kLevel);
  }
  return state != nullptr;
}

size_t Compressor::Compress(const uint8_t* text, size_t size, uint8_t* member, size_t room) {
  auto* compressor = static_cast<libdeflate_compressor*>(state);
  const size_t length = libdeflate_gzip_compress(compressor, text, size, member, room);
  if (length != 0) {
    // As zlib has them at its best level.
    member[kHeaderLevel] = 2;
    member[kHeaderSystem] = 3;
  }
  return length;
}
