#include <stdlib.h>
#include <zlib.h>

#include "mmaplog/compressor.h"
#include "mmaplog/log_format.h"

using namespace LogFormat;

namespace {

// The oldest zlib that the device may bring: its stream record is the one that later versions take as well.
constexpr char kZlibVersion[] = "1.2.8";

}  // namespace

Compressor::~Compressor() {
  if (state != nullptr) {
    deflateEnd(static_cast<z_stream*>(state));
    free(state);
  }
}

bool Compressor::SetUp() {
  if (state != nullptr) {
    return true;
  }
  auto* stream = static_cast<z_stream*>(calloc(1, sizeof(z_stream)));
  if (stream == nullptr) {
    return false;
  }
  if (deflateInit2_(stream, kDeflateLevel, Z_DEFLATED, kGzipWindowBits, kDeflateMemLevel, Z_DEFAULT_STRATEGY,
                    kZlibVersion, static_cast<int>(sizeof *stream)) != Z_OK) {
    free(stream);
    return false;
  }
  state = stream;
  return true;
}

size_t Compressor::Compress(const uint8_t* text, size_t size, uint8_t* member, size_t room) {
  auto& stream = *static_cast<z_stream*>(state);
  stream.next_in = const_cast<uint8_t*>(text);
  stream.avail_in = static_cast<uInt>(size);
  stream.next_out = member;
  stream.avail_out = static_cast<uInt>(room);
  const bool finished = deflate(&stream, Z_FINISH) == Z_STREAM_END;
  const size_t left = stream.avail_out;
  deflateReset(&stream);
  return finished ? room - left : 0;
}
