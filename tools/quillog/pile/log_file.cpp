#include "quillog/pile/log_file.h"

#include <errno.h>
#include <sys/stat.h>

namespace {

bool IsSame(const ByteRange& range, const LogFile& file) {
  struct stat status = {};
  return range && fstat(range.fd(), &status) == 0 && status.st_ino == file.inode && status.st_dev == file.device;
}

}  // namespace

ByteRange LogFile::Open() const {
  if (held) {
    return held;
  }
  ByteRange range = folder->Open(Name());
  const bool isGone = !range && errno == ENOENT;
  if (inode == 0 || kind == Kind::kMapped || (!range && !isGone) || IsSame(range, *this)) {
    return range;
  }
  // A rotation renames an archive again and again, and may do so while its new name is looked for.
  constexpr int kMostTries = 5;
  Listing listing;
  for (int tries = 0; tries < kMostTries; ++tries) {
    if (!folder->List(&listing)) {
      return {};
    }
    for (const auto& [name, entry] : listing) {
      if (!entry.isFolder && entry.inode == inode && entry.device == device) {
        range = folder->Open(name);
        if (IsSame(range, *this)) {
          return range;
        }
      }
    }
  }
  errno = ENOENT;
  return {};
}
