#include "quillog/bytes/archive_reader.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "quillog/bytes/file_identity.h"

namespace {

constexpr size_t kBlock = 512;
/// A factory archive has five files. More than this is no log, and each takes a pass.
constexpr size_t kMostEntries = 16;
/// Fields of a tar header: offset, length.
constexpr size_t kNameLength = 100;
constexpr size_t kSizeAt = 124;
constexpr size_t kSumAt = 148;
constexpr size_t kTypeAt = 156;

uint64_t Octal(const uint8_t* field, size_t length) {
  char text[16] = {};
  memcpy(text, field, length);
  return strtoull(text, nullptr, 8);
}

bool IsHeader(const uint8_t* block) {
  if (block[0] == 0 || block[kBlock - 1] != 0) {
    return false;  // as nearly all text; the header ends in zeros
  }
  uint64_t sum = 0;
  for (size_t i = 0; i < kBlock; ++i) {
    sum += i >= kSumAt && i < kSumAt + 8 ? ' ' : block[i];
  }
  return sum == Octal(block + kSumAt, 8);
}

bool IsZero(const uint8_t* block) {
  return block[0] == 0 && memcmp(block, block + 1, kBlock - 1) == 0;
}

/// "cat.3" -> 3; 0 for a name without a number.
long NumberOf(const std::string& name) {
  const size_t dot = name.rfind('.');
  return dot != std::string::npos ? strtol(name.c_str() + dot + 1, nullptr, 10) : 0;
}

uint64_t Padded(uint64_t size) {
  return (size + kBlock - 1) / kBlock * kBlock;
}

}  // namespace

bool ArchiveReader::IsArchive(const ByteRange& bytes) {
  GzipSource source(bytes);
  size_t available = 0;
  const uint8_t* block = source.Peek(kBlock, &available);
  return available >= kBlock && IsHeader(block);
}

void ArchiveReader::Examine() {
  if (examined) {
    return;
  }
  examined = true;
  summary.bytes = window.End();
  verdict = source.Check();
  if (verdict != GzipSource::Verdict::kWhole) {
    source.StopAtZeros();
    verdict = source.Check();
  }
  List();
  std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.number > b.number; });
}

void ArchiveReader::List() {
  size_t available = 0;
  for (const uint8_t* block; block = source.Peek(kBlock, &available), available >= kBlock;) {
    if (!IsHeader(block)) {
      isTar = IsZero(block) && !entries.empty();
      return;
    }
    if (!AddEntry(block)) {
      break;
    }
  }
  isTar = false;  // there is no end
}

/// Notes the file of that header and passes over its text. False: what follows cannot be relied on.
bool ArchiveReader::AddEntry(const uint8_t* header) {
  const auto* name = reinterpret_cast<const char*>(header);
  Entry entry{source.place() + kBlock, NumberOf(std::string(name, strnlen(name, kNameLength))), 0, false, 0, ""};
  const uint64_t size = Octal(header + kSizeAt, 12);
  const bool isFile = header[kTypeAt] == 0 || header[kTypeAt] == '0';
  source.Skip(kBlock);
  tooMany = isFile && entries.size() == kMostEntries;
  if (tooMany) {
    return false;
  }
  size_t available = 0;
  const uint8_t* text = source.Peek(kIdentityBytes, &available);
  entry.identity = FileIdentity(reinterpret_cast<const char*>(text), std::min<uint64_t>(available, size));
  check = TextCheck();
  while (const size_t taken = CheckText(size - entry.size, &entry.checksum)) {
    entry.size += taken;
  }
  entry.whole = entry.size == size;
  source.Skip(Padded(size) - size);
  if (isFile) {
    entries.push_back(entry);
  }
  return entry.whole;
}

/// Passes over at most `rest` bytes of a file's text: as many as there are or, without a checksum that is right, as may
/// be what was logged. 0: no more.
size_t ArchiveReader::CheckText(uint64_t rest, unsigned long* checksum) {
  const bool isSure = verdict == GzipSource::Verdict::kWhole;
  size_t available = 0;
  const uint8_t* bytes = source.Peek(isSure ? 1 : GzipSource::kMostWanted, &available);
  size_t size = static_cast<size_t>(std::min<uint64_t>(rest, available));
  size = isSure ? size : check.PossibleLength(reinterpret_cast<const char*>(bytes), size);
  *checksum = crc32_z(*checksum, bytes, size);
  source.Skip(size);
  return size;
}

bool ArchiveReader::PassOver(const FileSummary& known) {
  Examine();
  const auto same = [&](const Entry& entry) {
    return entry.whole && entry.size == known.textBytes && entry.checksum == known.checksum;
  };
  const auto last = std::find_if(entries.rbegin(), entries.rend(), same);
  if (last == entries.rend()) {
    return false;
  }
  entries.erase(entries.begin(), last.base());
  return true;
}

const std::string* ArchiveReader::Identity(uint64_t member) const {
  const auto found =
      std::find_if(entries.begin(), entries.end(), [member](const Entry& entry) { return entry.place == member; });
  return found != entries.end() ? &found->identity : nullptr;
}

bool ArchiveReader::Next(Tail, Piece* piece) {
  *piece = Piece();
  Examine();
  if (!damageTold) {
    damageTold = true;
    NoteDamage(piece);
    if (!piece->damage.empty()) {
      return true;
    }
  }
  while (current < entries.size()) {
    if (ReadEntry(entries[current], piece)) {
      return true;
    }
    ++current;
    ++summary.members;
    atStart = true;
    if (piece->gapAfter) {
      return true;
    }
  }
  return false;
}

void ArchiveReader::NoteDamage(Piece* piece) {
  const std::string files = std::to_string(entries.size()) + (entries.size() == 1 ? " file" : " files") + " of it";
  if (tooMany) {
    SetDamage(piece, 0, FileState::kTorn, "more than " + std::to_string(kMostEntries) + " files, the rest is left out");
  } else if (verdict == GzipSource::Verdict::kContradiction) {
    SetDamage(piece, 0, FileState::kTorn,
              "archive damaged, its bytes contradict its checksum: " + files + " unverified, the rest lost");
  } else if (verdict == GzipSource::Verdict::kCutShort) {
    SetDamage(piece, source.limit(), FileState::kTorn, "archive torn: " + files + " unverified, rest lost");
  } else if (!isTar) {
    SetDamage(piece, 0, FileState::kTorn, "no tar archive, or none that ends: " + files + ", rest lost");
  } else if (source.memberEnd() < source.fileEnd()) {
    SetDamage(piece, source.memberEnd(), FileState::kDamaged,
              std::to_string(source.fileEnd() - source.memberEnd()) + " bytes after the archive, which are not read");
  }
}

/// The next piece of that file. False: it has ended, perhaps in a gap.
bool ArchiveReader::ReadEntry(const Entry& entry, Piece* piece) {
  if (atStart) {
    source.Rewind();
    source.Skip(entry.place);
  }
  const uint64_t done = source.place() - entry.place;
  size_t available = 0;
  piece->text = reinterpret_cast<const char*>(source.Peek(1, &available));
  piece->size = static_cast<size_t>(std::min<uint64_t>(available, entry.size - done));
  piece->starts = atStart;
  piece->verified = verdict == GzipSource::Verdict::kWhole;
  piece->member = entry.place;
  piece->offset = done;
  atStart = false;
  source.Skip(piece->size);
  summary.textBytes += piece->size;
  piece->gapAfter = piece->size == 0 && !entry.whole;
  return piece->size > 0;
}
