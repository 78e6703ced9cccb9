#include "quillog/gzip_source.h"

#include <algorithm>

namespace {

constexpr size_t kPiece = 65536;
constexpr uint64_t kSector = 512;
constexpr int kGzipOnly = 15 + 16;  // RFC 1952

}  // namespace

GzipSource::GzipSource(const ByteRange& file) : window(file), output(kPiece) {
  result = inflateInit2(&stream, kGzipOnly);
}

GzipSource::~GzipSource() {
  inflateEnd(&stream);
}

void GzipSource::Rewind() {
  position = 0;
  result = inflateReset(&stream);
}

size_t GzipSource::Next(const void** bytes) {
  stream.next_out = output.data();
  stream.avail_out = static_cast<uInt>(output.size());
  while (result == Z_OK && stream.avail_out > 0) {
    size_t available = 0;
    const uint8_t* input = window.At(position, 1, &available);
    const size_t size = static_cast<size_t>(std::min<uint64_t>(available, end - std::min(end, position)));
    if (size == 0) {
      result = Z_BUF_ERROR;
      break;
    }
    stream.next_in = const_cast<Bytef*>(input);
    stream.avail_in = static_cast<uInt>(size);
    result = inflate(&stream, Z_NO_FLUSH);
    position += size - stream.avail_in;
  }
  *bytes = output.data();
  return output.size() - stream.avail_out;
}

GzipSource::Verdict GzipSource::Drain() {
  const void* bytes = nullptr;
  while (Next(&bytes) > 0) {
  }
  return result == Z_STREAM_END  ? Verdict::kWhole
         : result == Z_BUF_ERROR ? Verdict::kCutShort
                                 : Verdict::kContradiction;
}

void GzipSource::StopAtZeros() {
  uint64_t zeros = 0;
  size_t available = 0;
  end = 0;
  for (const uint8_t* bytes; zeros < kSector && (bytes = window.At(end, 1, &available), available > 0);) {
    for (size_t i = 0; i < available && zeros < kSector; ++i, ++end) {
      zeros = bytes[i] == 0 ? zeros + 1 : 0;
    }
  }
  end -= zeros;
}
