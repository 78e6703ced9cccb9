#include "quillog/bytes/plain_reader.h"

#include <string.h>
#include <zlib.h>

#include <algorithm>

#include "quillog/bytes/file_identity.h"

namespace {

/// Text that is read as a whole, or not.
constexpr uint64_t kBlock = 65536;

}  // namespace

bool PlainReader::Next(Tail tail, Piece* piece) {
  *piece = Piece();
  if (!looking) {
    looking = true;
    window.Forget();
    if (window.End() < position && limit == UINT64_MAX) {
      // Somebody emptied the file; the daemon continues at its beginning.
      position = 0;
      summary = FileSummary();
      identity.clear();
      piece->starts = true;
    }
  }
  looking = Look(tail, piece) || piece->starts;
  return looking;
}

bool PlainReader::Look(Tail tail, Piece* piece) {
  size_t available = 0;
  if (identity.empty()) {
    const uint8_t* beginning = window.At(0, kIdentityBytes, &available);
    identity = FileIdentity(reinterpret_cast<const char*>(beginning), available);
  }
  const uint8_t* bytes = window.At(position, 1, &available);
  available = static_cast<size_t>(std::min<uint64_t>(available, limit - std::min(limit, position)));
  if (available == 0) {
    summary.state = summary.textBytes == 0 && summary.state == FileState::kClosed ? FileState::kEmpty : summary.state;
    return End(position, piece);
  }
  const auto* zero = static_cast<const uint8_t*>(memchr(bytes, 0, available));
  if (zero == bytes) {
    const uint64_t next = window.EndOfZeros(position);
    const bool isLast = window.IsEnd(next);
    if (isLast && tail == Tail::kGrows) {
      return false;
    }
    SetDamage(piece, position, isLast ? FileState::kTorn : FileState::kDamaged,
              std::to_string(next - position) + " zero bytes in the place of text, which is lost");
    piece->gapAfter = true;
    position = next;
    return true;
  }
  piece->text = reinterpret_cast<const char*>(bytes);
  piece->size = zero != nullptr ? static_cast<size_t>(zero - bytes) : available;
  piece->offset = position;
  position += piece->size;
  summary.checksum = crc32_z(summary.checksum, bytes, piece->size);
  summary.textBytes += piece->size;
  summary.state = summary.state == FileState::kEmpty ? FileState::kClosed : summary.state;
  return true;
}

bool PlainReader::Head(uint64_t* at, std::string* text) {
  *at = (*at + kBlock - 1) / kBlock * kBlock;
  size_t available = 0;
  const uint8_t* bytes = window.At(*at, kHead, &available);
  text->assign(reinterpret_cast<const char*>(bytes), std::min(available, kHead));
  return !text->empty();
}

void PlainReader::Limit(uint64_t from, uint64_t to) {
  position = from;
  limit = to;
}
