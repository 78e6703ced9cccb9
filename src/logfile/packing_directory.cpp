#include "logfile/packing_directory.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "archive/tar_format.h"
#include "archive/tar_zip.h"
#include "logfile/file_steps.h"

namespace {

/// Nobody else may write here, and a default ACL of the log directory gives no more than the mode asks for.
constexpr mode_t kMode = 0755;
constexpr mode_t kWritableByOthers = 022;
/// What every rotated file has: all may read it, and those of the group write it.
constexpr mode_t kShared = 0664;

}  // namespace

PackingDirectory::PackingDirectory(int logDirectory, const std::string& livePath)
    : parent(logDirectory),
      path(FileNames::packingDirectory(livePath)),
      base(livePath.substr(livePath.rfind('/') + 1)),
      name(FileNames::packingDirectory(base)) {
  Open();
}

void PackingDirectory::Open() {
  struct stat status;
  if (fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return;
  }
  directory.Reset(openat(parent, name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  // One that cannot be opened now, for want of a descriptor, is left alone if it is its own by the look of it.
  const bool isExamined = directory.fd < 0 || fstat(directory.fd, &status) == 0;
  if (isExamined && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
      (status.st_mode & kWritableByOthers) == 0) {
    return;
  }
  directory.Reset(-1);
  MoveAway();
}

/// To the first name of O_tmp.moved.0, O_tmp.moved.1, ... that nothing has.
void PackingDirectory::MoveAway() const {
  struct stat status;
  int number = 0;
  while (fstatat(parent, FileNames::movedAway(name, number).c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    ++number;
  }
  if (renameIfThere(parent, name, parent, FileNames::movedAway(name, number), "while moving a foreign compress dir")) {
    fprintf(stderr, "%s moved to %s\n", path.c_str(), FileNames::movedAway(path, number).c_str());
  }
}

void PackingDirectory::Make() {
  if (mkdirat(parent, name.c_str(), kMode) != 0) {
    perror("couldn't create compress dir");
  }
  if (directory.fd < 0) {
    Open();
  }
}

void PackingDirectory::MoveIn(int number) const {
  if (renameat(parent, file(number).c_str(), directory.fd, file(number).c_str()) != 0) {
    perror("while rename log files");
  }
}

void PackingDirectory::MoveInRest() const {
  int lowest = 1;
  while (lowest <= kFiles && !fileExists(directory.fd, file(lowest))) {
    ++lowest;
  }
  for (int number = lowest - 1; lowest <= kFiles && !isPacked() && number >= 1; --number) {
    renameIfThere(parent, file(number), directory.fd, file(number), "while rename log files");
  }
}

/// Why a file that is there is not packed; null: it is. It may have been put in the place of a log file by somebody who
/// could not read it, as another name of a file: packed, it would be given away. A further name of a log file, which a
/// backup may give it, is no reason.
const char* PackingDirectory::objection(int number) const {
  struct stat status;
  if (fstatat(directory.fd, file(number).c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return nullptr;
  }
  if (!S_ISREG(status.st_mode)) {
    return "no plain file";
  }
  if (status.st_nlink > 1 && (status.st_mode & kShared) != kShared) {
    return "another name of a file that is not everybody's to read";
  }
  return status.st_size > TarFormat::kMaxFileSize ? "too large" : nullptr;
}

bool PackingDirectory::holdsFiles() const {
  for (int number = 1; number <= kFiles; ++number) {
    if (fileExists(directory.fd, file(number)) && objection(number) == nullptr) {
      return true;
    }
  }
  return false;
}

bool PackingDirectory::isPacked() const {
  return fileExists(directory.fd, FileNames::kPacked);
}

bool PackingDirectory::Pack() const {
  const std::string prefix = "/proc/self/fd/" + std::to_string(directory.fd) + '/';
  std::string files[kFiles];
  const char* paths[kFiles];
  for (int i = 0; i < kFiles; ++i) {
    files[i] = prefix + file(i + 1);
    paths[i] = objection(i + 1) == nullptr ? files[i].c_str() : nullptr;
  }
  return tar_zip_files(kFiles, paths, (prefix + FileNames::kUnfinished).c_str(), 0) &&
         renameIfThere(directory.fd, FileNames::kUnfinished, directory.fd, FileNames::kPacked,
                       "while rename compressed files");
}

/// The oldest first, so that the lowest number stays to the end: a start takes what is left for a whole set.
void PackingDirectory::DeleteFiles() const {
  for (int number = kFiles; number >= 1; --number) {
    if (objection(number) == nullptr && unlinkat(directory.fd, file(number).c_str(), 0) != 0) {
      perror("unlink failed");
    }
  }
}

void PackingDirectory::DeleteArchive() const {
  unlinkat(directory.fd, FileNames::kPacked, 0);
}

void PackingDirectory::Release(const std::string& archive) const {
  renameIfThere(directory.fd, FileNames::kPacked, parent, archive, "while rename compressed files");
}

void PackingDirectory::Remove() {
  if (unlinkat(parent, name.c_str(), AT_REMOVEDIR) != 0) {
    const bool holdsSome = errno == ENOTEMPTY || errno == EEXIST;
    perror("unlink failed");
    for (int number = kFiles; number >= 1; --number) {
      if (const char* reason = objection(number)) {
        fprintf(stderr, "%s/%s is not packed: %s\n", path.c_str(), file(number).c_str(), reason);
      }
    }
    if (holdsSome) {
      MoveAway();
    }
  }
  directory.Reset(-1);
}
