#include "quillog/member_reader.h"

#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "mmaplog/log_format.h"

namespace {

/// What each member of a writer begins with.
constexpr uint8_t kHeader[] = {0x1f, 0x8b, 8, 0, 0, 0, 0, 0, 2, 3};

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

}  // namespace

MemberReader::MemberReader(const ByteRange& file, TextSink& textSink, bool settles)
    : FileReader(textSink), maySettle(settles), window(file), text(new uint8_t[kTextRoom]) {
  // Without memory every member is a contradiction, which is reported.
  inflateInit2(&stream, LogFormat::kGzipWindowBits);
  sink.OnStart();
}

MemberReader::~MemberReader() {
  inflateEnd(&stream);
}

void MemberReader::Read(bool growing) {
  window.Forget();
  while (!window.IsEnd(position)) {
    const bool isHeader = AtHeader();
    if (isHeader && ReadMember()) {
      continue;
    }
    if (!isHeader && window.IsEnd(window.EndOfZeros(position))) {
      summary.state = summary.state == FileState::kClosed ? FileState::kZeroTail : summary.state;
      break;
    }
    const uint64_t next = window.Find(kHeader, sizeof kHeader, position + 1);
    const bool isLast = window.IsEnd(next);
    if (isLast && growing) {
      break;
    }
    if (isLast ? !Settled() : MayBeWholeByNow()) {
      continue;
    }
    isHeader ? Salvage(next) : SkipForeign(next);
    position = next;
  }
  summary.bytes = window.End();
  if (window.Failed()) {
    ReportDamage(position, FileState::kTorn, "cannot be read from here");
  }
  if (summary.members == 0 && summary.textBytes == 0 && summary.state <= FileState::kZeroTail) {
    summary.state = FileState::kEmpty;
  }
}

bool MemberReader::AtHeader() {
  size_t available = 0;
  const uint8_t* bytes = window.At(position, sizeof kHeader, &available);
  return available >= sizeof kHeader && memcmp(bytes, kHeader, sizeof kHeader) == 0;
}

/// False: the member at the position is not whole and sound.
bool MemberReader::ReadMember() {
  size_t available = 0;
  const uint8_t* bytes = window.At(position, kMostBytes, &available);
  if (Decode(bytes, std::min(available, kMostBytes)) != Outcome::kWhole) {
    return false;
  }
  sink.OnText(reinterpret_cast<const char*>(text.get()), textSize, true);
  position += consumed;
  summary.textBytes += textSize;
  ++summary.members;
  if (summary.state == FileState::kEmpty || summary.state == FileState::kZeroTail) {
    summary.state = FileState::kClosed;  // it has grown
  }
  return true;
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

/// False: the writer may be copying its last member at this moment. Read again.
bool MemberReader::Settled() {
  if (!maySettle || triesLeft == 0) {
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
  if (!maySettle || rereadAt == position || rereadsLeft == 0) {
    return false;
  }
  rereadAt = position;
  --rereadsLeft;
  window.Forget();
  return true;
}

/// Hands on what the broken member at the position still tells; the next header is at `next`.
void MemberReader::Salvage(uint64_t next) {
  const uint64_t real = EndOfRealBytes(next);
  size_t available = 0;
  const uint8_t* bytes = window.At(position, static_cast<size_t>(real - position), &available);
  Outcome outcome = Decode(bytes, std::min(available, static_cast<size_t>(real - position)));
  if (outcome == Outcome::kCutShort && real == next && !window.IsEnd(next)) {
    // Whatever breaks a member off leaves zeros or the end of the file, so these bytes are not the writer's.
    fault = "no end";
    outcome = Outcome::kContradiction;
  }
  ReportBroken(outcome, real, next);
  // Up to the last complete line: the piece after it is dropped at the gap.
  if (outcome == Outcome::kCutShort) {
    sink.OnText(reinterpret_cast<const char*>(text.get()), textSize, false);
    summary.textBytes += textSize;
  }
  sink.OnGap();
}

/// Where the written bytes of the member at the position end, at most `end`.
uint64_t MemberReader::EndOfRealBytes(uint64_t end) {
  size_t available = 0;
  const uint8_t* bytes = window.At(position, kMostBytes + kHole, &available);
  const size_t size = static_cast<size_t>(std::min<uint64_t>({end - position, kMostBytes + kHole, available}));
  const bool atFileEnd = size == available && available < kMostBytes + kHole;
  return position + std::min(FindHole(bytes, size, atFileEnd), kMostBytes);
}

void MemberReader::ReportBroken(Outcome outcome, uint64_t real, uint64_t next) {
  const bool isLast = window.IsEnd(next);
  const std::string rest = isLast ? "nothing behind it is readable" : "reading goes on at " + AtByte(next);
  const FileState state = isLast ? FileState::kTorn : FileState::kDamaged;
  if (outcome != Outcome::kCutShort) {
    ReportDamage(position, state, std::string("member lost (") + fault + "); " + rest);
    return;
  }
  const auto lines = std::count(text.get(), text.get() + textSize, '\n');
  ReportDamage(real, state,
               "member at " + AtByte(position) + " torn: " + std::to_string(lines) + (lines == 1 ? " line" : " lines") +
                   " of it unverified, rest lost; " + rest);
}

/// Passes over what is no member, up to `next`.
void MemberReader::SkipForeign(uint64_t next) {
  const uint64_t length = next - position;
  const bool zeros = window.EndOfZeros(position) >= next;
  const bool isLast = window.IsEnd(next);
  ReportDamage(position, isLast ? FileState::kTorn : FileState::kDamaged,
               std::to_string(length) + (zeros ? " zero bytes" : " bytes that are no member") + ", their text lost; " +
                   (isLast ? "nothing behind it is readable" : "reading goes on at " + AtByte(next)));
  sink.OnGap();
}
