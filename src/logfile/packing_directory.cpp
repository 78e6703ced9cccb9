#include "logfile/packing_directory.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "logfile/file_steps.h"

namespace {

constexpr mode_t kMode = 0775;
constexpr mode_t kWritableByOthers = 022;
constexpr int kMostMoved = 100;

}  // namespace

PackingDirectory::PackingDirectory(const std::string& livePath)
    : path(livePath + "_tmp"), baseName(livePath.substr(livePath.rfind('/') + 1)) {
  Open();
}

PackingDirectory::~PackingDirectory() {
  if (fd >= 0) {
    close(fd);
  }
}

void PackingDirectory::Open() {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) {
    return;
  }
  fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  // One that cannot be opened now, for want of a descriptor, is left alone if it is its own by the look of it.
  const bool isExamined = fd < 0 || fstat(fd, &status) == 0;
  if (isExamined && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
      (status.st_mode & kWritableByOthers) == 0) {
    return;
  }
  if (fd >= 0) {
    close(fd);
    fd = -1;
  }
  MoveAway();
}

/// To the first name of O_tmp.moved.0, O_tmp.moved.1, ... that nothing has.
void PackingDirectory::MoveAway() const {
  for (int number = 0; number < kMostMoved; ++number) {
    const std::string target = path + ".moved." + std::to_string(number);
    struct stat status;
    if (lstat(target.c_str(), &status) != 0) {
      renameIfThere(path, target, "while moving a foreign compress dir");
      return;
    }
  }
}

void PackingDirectory::Make() {
  if (mkdir(path.c_str(), kMode) != 0) {
    perror("couldn't create compress dir");
  }
  if (fd < 0) {
    Open();
  }
}

std::string PackingDirectory::at(const std::string& name) const {
  return "/proc/self/fd/" + std::to_string(fd) + '/' + name;
}

std::string PackingDirectory::file(int number) const {
  return at(baseName + '.' + std::to_string(number));
}

bool PackingDirectory::holdsFiles() const {
  for (int number = 1; number <= kFiles; ++number) {
    if (fileExists(file(number))) {
      return true;
    }
  }
  return false;
}

/// The oldest first: with B.5 gone a start does not take the others for a set that is being moved in.
void PackingDirectory::DeleteFiles() const {
  for (int number = kFiles; number >= 1; --number) {
    if (unlink(file(number).c_str()) != 0) {
      perror("unlink failed");
    }
  }
}

void PackingDirectory::Remove() const {
  if (rmdir(path.c_str()) == 0) {
    return;
  }
  const int error = errno;
  perror("unlink failed");
  if (error == ENOTEMPTY || error == EEXIST) {
    MoveAway();
  }
}
