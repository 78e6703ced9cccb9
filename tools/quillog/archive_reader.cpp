#include "quillog/archive_reader.h"

#include <archive.h>
#include <archive_entry.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

namespace {

la_ssize_t NextBytes(archive*, void* source, const void** bytes) {
  return static_cast<la_ssize_t>(static_cast<GzipSource*>(source)->Next(bytes));
}

/// "cat.3" -> 3; 0 for a name without a number.
long NumberOf(const char* name) {
  const char* dot = name != nullptr ? strrchr(name, '.') : nullptr;
  return dot != nullptr ? strtol(dot + 1, nullptr, 10) : 0;
}

}  // namespace

/// Calls `visit(tar, entry, place)` for each file of the stream until it gives false. False: the stream broke off.
template <typename Visit>
bool ArchiveReader::ForEachEntry(Visit visit) {
  source.Rewind();
  archive* tar = archive_read_new();
  archive_read_support_format_tar(tar);
  int result = archive_read_open(tar, &source, nullptr, NextBytes, nullptr);
  archive_entry* entry = nullptr;
  bool goesOn = true;
  for (int64_t place = 0; goesOn && result == ARCHIVE_OK; ++place) {
    result = archive_read_next_header(tar, &entry);
    result = result == ARCHIVE_WARN ? ARCHIVE_OK : result;  // a name in another alphabet
    goesOn = result == ARCHIVE_OK && (archive_entry_filetype(entry) != AE_IFREG || visit(tar, entry, place));
  }
  archive_read_free(tar);
  return result == ARCHIVE_OK || result == ARCHIVE_EOF;
}

void ArchiveReader::Examine() {
  if (examined) {
    return;
  }
  examined = true;
  summary.bytes = source.Size();
  source.Rewind();
  verdict = source.Drain();
  if (verdict != GzipSource::Verdict::kWhole) {
    source.StopAtZeros();
    source.Rewind();
    verdict = source.Drain();
  }
  if (verdict == GzipSource::Verdict::kContradiction) {
    ReportDamage(0, FileState::kTorn, "archive lost: its bytes contradict its checksum");
    return;
  }
  const bool isTar = List();
  if (verdict == GzipSource::Verdict::kCutShort) {
    ReportDamage(source.limit(), FileState::kTorn,
                 "archive torn: " + std::to_string(entries.size()) + " files of it unverified, rest lost");
  } else if (!isTar) {
    ReportDamage(0, FileState::kTorn,
                 "no tar archive, or none that ends: " + std::to_string(entries.size()) + " files of it, rest lost");
  }
}

/// False: the stream is no tar stream up to its end.
bool ArchiveReader::List() {
  const bool isTar = ForEachEntry([this](archive* tar, archive_entry* header, int64_t place) {
    Entry entry{place, NumberOf(archive_entry_pathname(header)), 0, false, 0};
    const void* bytes = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    int result;
    while ((result = archive_read_data_block(tar, &bytes, &size, &offset)) == ARCHIVE_OK) {
      entry.checksum = crc32_z(entry.checksum, static_cast<const Bytef*>(bytes), size);
      entry.size += size;
    }
    entry.whole = result == ARCHIVE_EOF;
    entries.push_back(entry);
    return entry.whole;
  });
  const bool isWhole = entries.empty() || entries.back().whole;
  std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.number > b.number; });
  return isTar && isWhole;
}

bool ArchiveReader::SkipUpTo(uint64_t size, unsigned long checksum) {
  Examine();
  const auto same = [&](const Entry& entry) { return entry.size == size && entry.checksum == checksum; };
  const auto last = std::find_if(entries.rbegin(), entries.rend(), same);
  if (last == entries.rend()) {
    return false;
  }
  entries.erase(entries.begin(), last.base());
  return true;
}

void ArchiveReader::Read(bool) {
  if (done) {
    return;
  }
  done = true;
  Examine();
  for (const Entry& entry : entries) {
    ReadEntry(entry);
  }
}

void ArchiveReader::ReadEntry(const Entry& wanted) {
  sink.OnStart();
  ForEachEntry([&](archive* tar, archive_entry*, int64_t place) {
    if (place != wanted.place) {
      return true;
    }
    const void* bytes = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    while (archive_read_data_block(tar, &bytes, &size, &offset) == ARCHIVE_OK) {
      sink.OnText(static_cast<const char*>(bytes), size, verdict == GzipSource::Verdict::kWhole);
      summary.textBytes += size;
    }
    return false;
  });
  ++summary.members;
  if (!wanted.whole) {
    sink.OnGap();
  }
}
