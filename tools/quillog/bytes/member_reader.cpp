#include "quillog/bytes/member_reader.h"

#include <string.h>
#include <unistd.h>

#ifdef QUILLOG_LIBDEFLATE
#include <libdeflate.h>
#endif

#include <algorithm>

#include "mmaplog/log_format.h"
#include "quillog/bytes/text_check.h"

namespace {

/// What each member of a writer begins with.
constexpr uint8_t kHeader[] = {0x1f, 0x8b, 8, 0, 0, 0, 0, 0, 2, 3};
/// Any gzip member begins with these and a byte of flags.
constexpr uint8_t kMagic[] = {0x1f, 0x8b, 8};
constexpr uint8_t kNoFlags = 0xe0;

/// No member is longer: the writer splits a block whose compressed form is longer than its area. Some room is added for
/// other writers.
constexpr size_t kMostBytes = LogFormat::kBlockArea + 4096;

/// One byte more than a writer's member holds shows that it holds more.
constexpr size_t kTextRoom = LogFormat::kBlockArea + 1;

/// So many zeros in a broken member are taken for bytes that were never written. Deflated text holds so many only where
/// one character fills kilobytes; then less is rescued, but nothing is made up.
constexpr size_t kHole = 16;

/// The offset of the first `kHole` zeros or, at the file's end, of the zeros up to it; `size` when there are none.
size_t FindHole(const uint8_t* bytes, size_t size, bool atFileEnd) {
  size_t zeros = 0;
  for (size_t i = 0; i < size; ++i) {
    zeros = bytes[i] == 0 ? zeros + 1 : 0;
    if (zeros == kHole) {
      return i + 1 - kHole;
    }
  }
  return atFileEnd ? size - zeros : size;
}

std::string AtByte(uint64_t offset) {
  return "byte " + std::to_string(offset);
}

#ifdef QUILLOG_LIBDEFLATE
libdeflate_decompressor* NewFast() {
  return libdeflate_alloc_decompressor();
}
#else
libdeflate_decompressor* NewFast() {
  return nullptr;
}
#endif

}  // namespace

MemberReader::MemberReader(const ByteRange& bytes) : FileReader(bytes), fast(NewFast()), text(new uint8_t[kTextRoom]) {
  // Without memory every member is a contradiction, which is reported.
  inflateInit2(&stream, LogFormat::kGzipWindowBits);
}

MemberReader::~MemberReader() {
  inflateEnd(&stream);
#ifdef QUILLOG_LIBDEFLATE
  libdeflate_free_decompressor(fast);
#endif
}

bool MemberReader::Next(Tail tail, Piece* piece) {
  *piece = Piece();
  if (!looking) {
    window.Forget();
  }
  looking = Look(tail, piece);
  return looking;
}

bool MemberReader::Look(Tail tail, Piece* piece) {
  while (position < limit && !window.IsEnd(position)) {
    if (foreign != nullptr && ReadForeign(piece)) {
      return true;
    }
    const bool isHeader = AtHeader(position);
    if (AtGzip()) {
      if (ReadMember(piece)) {
        return true;
      }
      if (OpenForeign(isHeader)) {
        continue;
      }
    }
    if (!isHeader && window.IsEnd(window.EndOfZeros(position))) {
      summary.state = summary.state == FileState::kClosed ? FileState::kZeroTail : summary.state;
      break;
    }
    const uint64_t next = window.Find(kHeader, sizeof kHeader, position + 1);
    const bool isLast = window.IsEnd(next);
    if (isLast && tail == Tail::kGrows) {
      break;
    }
    if (tail != Tail::kIsFinal && (isLast ? !Settled() : MayBeWholeByNow())) {
      continue;
    }
    isHeader ? Salvage(next, piece) : SkipForeign(next, piece);
    position = next;
    return true;
  }
  if (summary.members == 0 && summary.textBytes == 0 && summary.state <= FileState::kZeroTail) {
    summary.state = FileState::kEmpty;
  }
  return End(position, piece);
}

bool MemberReader::Head(uint64_t* at, std::string* head) {
  size_t available = 0;
  *at = AtHeader(*at) ? *at : window.Find(kHeader, sizeof kHeader, *at);
  const uint8_t* bytes = window.At(*at, 2 * kHead, &available);
  inflateReset(&stream);
  stream.next_in = const_cast<Bytef*>(bytes);
  stream.avail_in = static_cast<uInt>(available);
  stream.next_out = text.get();
  stream.avail_out = kHead;
  inflate(&stream, Z_SYNC_FLUSH);
  head->assign(reinterpret_cast<const char*>(text.get()), kHead - stream.avail_out);
  return available > 0;
}

void MemberReader::Limit(uint64_t from, uint64_t to) {
  position = from;
  limit = to;
}

bool MemberReader::AtHeader(uint64_t at) {
  size_t available = 0;
  const uint8_t* bytes = window.At(at, sizeof kHeader, &available);
  return available >= sizeof kHeader && memcmp(bytes, kHeader, sizeof kHeader) == 0;
}

/// True when a gzip member begins at the position, a writer's or another's.
bool MemberReader::AtGzip() {
  size_t available = 0;
  const uint8_t* bytes = window.At(position, sizeof kHeader, &available);
  return available >= sizeof kHeader && memcmp(bytes, kMagic, sizeof kMagic) == 0 && (bytes[3] & kNoFlags) == 0;
}

/// False: the member at the position is not whole and sound, or it has more text than a writer's.
bool MemberReader::ReadMember(Piece* piece) {
  size_t available = 0;
  const uint8_t* bytes = window.At(position, kMostBytes, &available);
  if (!Inflate(bytes, std::min(available, kMostBytes))) {
    return false;
  }
  SetText(piece, text.get(), textSize, true);
  position += consumed;
  ++summary.members;
  if (summary.state == FileState::kEmpty || summary.state == FileState::kZeroTail) {
    summary.state = FileState::kClosed;  // it has grown
  }
  return true;
}

void MemberReader::SetText(Piece* piece, const uint8_t* bytes, size_t size, bool verified) {
  piece->text = reinterpret_cast<const char*>(bytes);
  piece->size = size;
  piece->verified = verified;
  piece->member = position;
  summary.textBytes += size;
}

/// Decodes a member that is whole and of a size that a writer's has. False: it is none.
bool MemberReader::Inflate(const uint8_t* bytes, size_t size) {
#ifdef QUILLOG_LIBDEFLATE
  if (fast != nullptr && libdeflate_gzip_decompress_ex(fast, bytes, size, text.get(), LogFormat::kBlockArea, &consumed,
                                                       &textSize) == LIBDEFLATE_SUCCESS) {
    return true;
  }
#endif
  return Decode(bytes, size) == Outcome::kWhole;
}

MemberReader::Outcome MemberReader::Decode(const uint8_t* bytes, size_t size) {
  inflateReset(&stream);
  stream.next_in = const_cast<Bytef*>(bytes);
  stream.avail_in = static_cast<uInt>(size);
  stream.next_out = text.get();
  stream.avail_out = static_cast<uInt>(kTextRoom);
  const int result = inflate(&stream, Z_FINISH);
  textSize = kTextRoom - stream.avail_out;
  consumed = size - stream.avail_in;
  if (textSize > LogFormat::kBlockArea) {
    fault = "more text than a member holds";
    return Outcome::kContradiction;
  }
  if (result == Z_STREAM_END) {
    return Outcome::kWhole;
  }
  if (result == Z_BUF_ERROR && stream.avail_in == 0 && size < kMostBytes) {
    return Outcome::kCutShort;
  }
  fault = stream.msg != nullptr ? stream.msg : "no end";
  return Outcome::kContradiction;
}

/// True when another packer's member is at the position, after ReadMember(): it has another header, or more text than a
/// writer's member, and it begins with lines.
bool MemberReader::OpenForeign(bool isHeader) {
  const bool hasLines = memchr(text.get(), '\n', textSize) != nullptr && memchr(text.get(), '\0', textSize) == nullptr;
  if (!hasLines || (isHeader && textSize <= LogFormat::kBlockArea)) {
    return false;
  }
  foreign = std::make_unique<GzipSource>(range, position);
  verdict = foreign->Check();
  check = TextCheck();
  if (verdict != GzipSource::Verdict::kWhole && isHeader) {
    foreign = nullptr;  // a broken member of a writer's, in which bytes contradict themselves
  }
  return foreign != nullptr;
}

/// The next piece of the other packer's member. False: it has ended, and the position is after it.
bool MemberReader::ReadForeign(Piece* piece) {
  size_t available = 0;
  const uint64_t place = foreign->place();
  const bool isWhole = verdict == GzipSource::Verdict::kWhole;
  const uint8_t* bytes = foreign->Peek(isWhole ? 1 : GzipSource::kMostWanted, &available);
  const size_t possible = isWhole ? available : check.PossibleLength(reinterpret_cast<const char*>(bytes), available);
  if (possible > 0) {
    SetText(piece, bytes, possible, isWhole);
    piece->offset = place;
    foreign->Skip(possible);
    return true;
  }
  const uint64_t member = position;
  position = isWhole ? foreign->memberEnd() : window.Find(kHeader, sizeof kHeader, position + 1);
  foreign = nullptr;
  summary.members += isWhole ? 1 : 0;
  if (!isWhole) {
    SetDamage(
        piece, member, window.IsEnd(position) ? FileState::kTorn : FileState::kDamaged,
        "member of another packer is broken: " + std::to_string(place) + " bytes of its text unverified, rest lost");
    piece->gapAfter = true;
  }
  return !isWhole;
}

/// False: the writer may be copying its last member at this moment. Read again.
bool MemberReader::Settled() {
  if (triesLeft == 0) {
    return true;
  }
  --triesLeft;
  usleep(20000);
  window.Forget();
  return false;
}

/// True, once for each position: the broken bytes there may have been read while the writer stored them, before it went
/// on to the next member. Read them again.
bool MemberReader::MayBeWholeByNow() {
  if (rereadAt == position || rereadsLeft == 0) {
    return false;
  }
  rereadAt = position;
  --rereadsLeft;
  window.Forget();
  return true;
}

/// Gives what the broken member at the position still tells; the next header is at `next`.
void MemberReader::Salvage(uint64_t next, Piece* piece) {
  const uint64_t real = EndOfRealBytes(next);
  size_t available = 0;
  const uint8_t* bytes = window.At(position, static_cast<size_t>(real - position), &available);
  Outcome outcome = Decode(bytes, std::min(available, static_cast<size_t>(real - position)));
  if (outcome == Outcome::kCutShort && real == next && !window.IsEnd(next)) {
    // Whatever breaks a member off leaves zeros or the end of the file, so these bytes are not the writer's.
    fault = "no end";
    outcome = Outcome::kContradiction;
  }
  textSize = TextCheck().PossibleLength(reinterpret_cast<const char*>(text.get()), textSize);
  ReportBroken(outcome, real, next, piece);
  if (outcome == Outcome::kCutShort) {
    SetText(piece, text.get(), textSize, false);
  }
  piece->gapAfter = true;
}

/// Where the written bytes of the member at the position end, at most `end`.
uint64_t MemberReader::EndOfRealBytes(uint64_t end) {
  size_t available = 0;
  const uint8_t* bytes = window.At(position, kMostBytes + kHole, &available);
  const size_t size = static_cast<size_t>(std::min<uint64_t>({end - position, kMostBytes + kHole, available}));
  const bool atFileEnd = size == available && available < kMostBytes + kHole;
  return position + std::min(FindHole(bytes, size, atFileEnd), kMostBytes);
}

void MemberReader::ReportBroken(Outcome outcome, uint64_t real, uint64_t next, Piece* piece) {
  const bool isLast = window.IsEnd(next);
  const std::string rest = isLast ? "nothing behind it is readable" : "reading goes on at " + AtByte(next);
  const FileState state = isLast ? FileState::kTorn : FileState::kDamaged;
  if (outcome != Outcome::kCutShort) {
    SetDamage(piece, position, state, std::string("member lost (") + fault + "); " + rest);
    return;
  }
  const auto lines = std::count(text.get(), text.get() + textSize, '\n');
  SetDamage(piece, real, state,
            "member at " + AtByte(position) + " torn: " + std::to_string(lines) + (lines == 1 ? " line" : " lines") +
                " of it unverified, rest lost; " + rest);
}

/// Passes over what is no member, up to `next`.
void MemberReader::SkipForeign(uint64_t next, Piece* piece) {
  const uint64_t length = next - position;
  const bool zeros = window.EndOfZeros(position) >= next;
  const bool isLast = window.IsEnd(next);
  SetDamage(piece, position, isLast ? FileState::kTorn : FileState::kDamaged,
            std::to_string(length) + (zeros ? " zero bytes" : " bytes that are no member") + ", their text lost; " +
                (isLast ? "nothing behind it is readable" : "reading goes on at " + AtByte(next)));
  piece->gapAfter = true;
}
