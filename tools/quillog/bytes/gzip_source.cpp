#include "quillog/bytes/gzip_source.h"

#include <string.h>

#include <algorithm>

namespace {

constexpr size_t kPiece = 65536;
constexpr uint64_t kSector = 512;
constexpr int kGzipOnly = 15 + 16;  // RFC 1952

}  // namespace

GzipSource::GzipSource(const ByteRange& bytes, uint64_t from)
    : window(bytes), output(new uint8_t[kPiece]), begin(from), position(from) {
  result = inflateInit2(&stream, kGzipOnly);
}

GzipSource::~GzipSource() {
  inflateEnd(&stream);
}

void GzipSource::Rewind() {
  position = begin;
  at = next = size = 0;
  result = inflateReset(&stream);
}

const uint8_t* GzipSource::Peek(size_t wanted, size_t* available) {
  if (size - next < wanted) {
    memmove(output.get(), output.get() + next, size - next);
    size -= next;
    next = 0;
    while (result == Z_OK && size < kPiece) {
      size_t there = 0;
      const uint8_t* input = window.At(position, 1, &there);
      const size_t taken = static_cast<size_t>(std::min<uint64_t>(there, end - std::min(end, position)));
      if (taken == 0) {
        result = Z_BUF_ERROR;
        break;
      }
      stream.next_in = const_cast<Bytef*>(input);
      stream.avail_in = static_cast<uInt>(taken);
      stream.next_out = output.get() + size;
      stream.avail_out = static_cast<uInt>(kPiece - size);
      result = inflate(&stream, Z_NO_FLUSH);
      position += taken - stream.avail_in;
      size = kPiece - stream.avail_out;
    }
  }
  *available = size - next;
  return output.get() + next;
}

void GzipSource::Skip(uint64_t count) {
  for (size_t available = 0; count > 0 && (Peek(1, &available), available > 0);) {
    const size_t taken = static_cast<size_t>(std::min<uint64_t>(count, available));
    next += taken;
    at += taken;
    count -= taken;
  }
}

GzipSource::Verdict GzipSource::Check() {
  Rewind();
  Skip(UINT64_MAX);
  const int found = result;
  checkedEnd = position;
  Rewind();
  return found == Z_STREAM_END ? Verdict::kWhole : found == Z_BUF_ERROR ? Verdict::kCutShort : Verdict::kContradiction;
}

void GzipSource::StopAtZeros() {
  uint64_t zeros = 0;
  size_t available = 0;
  end = begin;
  for (const uint8_t* bytes; zeros < kSector && (bytes = window.At(end, 1, &available), available > 0);) {
    for (size_t i = 0; i < available && zeros < kSector; ++i, ++end) {
      zeros = bytes[i] == 0 ? zeros + 1 : 0;
    }
  }
  end -= zeros;
}
