#include "quillog/bytes/file_reader.h"

#include <errno.h>
#include <sys/file.h>

#include "quillog/bytes/archive_reader.h"
#include "quillog/bytes/member_reader.h"
#include "quillog/bytes/plain_reader.h"

std::unique_ptr<FileReader> FileReader::Make(FileKind kind, const ByteRange& bytes) {
  switch (kind) {
    case FileKind::kMapped:
      return std::make_unique<MemberReader>(bytes);
    case FileKind::kArchive:
      return std::make_unique<ArchiveReader>(bytes);
    case FileKind::kPlain:
      break;
  }
  return std::make_unique<PlainReader>(bytes);
}

bool FileReader::HasWriter() const {
  const bool isLocked = flock(range.fd(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  if (!isLocked) {
    flock(range.fd(), LOCK_UN);
  }
  return isLocked;
}

void FileReader::SetDamage(Piece* piece, uint64_t offset, FileState state, const std::string& what) {
  if (summary.state != FileState::kTorn && summary.state != FileState::kDamaged) {
    summary.damagedAt = offset;
  }
  summary.state = state;
  piece->damage = what;
  piece->damagedAt = offset;
}

bool FileReader::End(uint64_t position, Piece* piece) {
  summary.bytes = window.End();
  const bool isTold = failureTold || !window.Failed();
  if (!isTold) {
    SetDamage(piece, position, FileState::kTorn, "cannot be read from here");
    failureTold = true;
  }
  return !isTold;
}
