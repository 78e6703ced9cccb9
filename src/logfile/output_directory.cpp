#include "logfile/output_directory.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <utility>

#include "logfile/change_owner.h"
#include "logfile/directory_part.h"
#include "platform/open_file.h"
#include "platform/property.h"

namespace {

constexpr mode_t kDirectoryMode = 0775;
constexpr mode_t kWritableByOthers = 022;  // an access control list shows in the bits of the group
constexpr size_t kLongestDirectory = 254;
constexpr int kAsPath = O_PATH | O_DIRECTORY | O_CLOEXEC;

bool IsRoots(const struct stat& status) {
  return status.st_uid == 0 || status.st_uid == geteuid();
}

/// Warns where `path` is about to be made at the top of a /data whose files are encrypted. init gives such a directory
/// its key as it makes it; where it finds one without, it may ask to wipe the device.
void WarnOfKey(const char* path) {
  constexpr char kData[] = "/data/";
  constexpr size_t kLength = sizeof(kData) - 1;
  char type[PROP_VALUE_MAX] = {};
  property_get("ro.crypto.type", type, nullptr);
  if (strcmp(type, "file") == 0 && strncmp(path, kData, kLength) == 0 && strchr(path + kLength, '/') == nullptr) {
    fprintf(stderr, "mkdir_p: [%s] is not made by init: remove it before init is to, or that may ask for a wipe\n",
            path);
  }
}

/// A way down a path, level by level. Each is looked up in the one that was reached: what others do to the names above
/// it leads nowhere else.
class Descent {
 public:
  explicit Descent(bool fromRoot) : directory(open(fromRoot ? "/" : ".", kAsPath)) {}

  /// Goes on to `name`, which messages call `path`. A link that others than root may have put there is removed.
  /// False: there is nothing, or a link that leads to no directory.
  bool Enter(const char* name, const char* path) {
    struct stat status;
    bool isThere = fstatat(directory.fd, name, &status, AT_SYMLINK_NOFOLLOW) == 0;
    const bool isLink = isThere && S_ISLNK(status.st_mode);
    const bool followed = isLink && IsRoots(status) && OnlyRootWrites();
    if (isLink && !followed) {
      const bool removed = unlinkat(directory.fd, name, 0) == 0;
      fprintf(stderr, removed ? "removed foreign link [%s]\n" : "unlink [%s] fail\n", path);
      isThere = false;
    }
    const int next = isThere ? openat(directory.fd, name, followed ? kAsPath : kAsPath | O_NOFOLLOW) : -1;
    if (next < 0 && (!isThere || followed)) {
      return false;
    }
    directory.Reset(next);
    return true;
  }

  /// Makes `name` and goes on to it.
  bool Make(const char* name, const char* path, mode_t mode) {
    WarnOfKey(path);
    ++made;
    if (mkdirat(directory.fd, name, mode) != 0) {
      if (errno == EEXIST && Enter(name, path)) {
        return true;  // another collector has just made it
      }
      fprintf(stderr, "%s: mkdir [%s] err.\n", "mkdir_p", path);
      return false;
    }
    directory.Reset(openat(directory.fd, name, kAsPath | O_NOFOLLOW));
    // mkdir is subject to the file-creation mask.
    if (fchmodat(directory.fd, ".", mode, 0) != 0) {
      fprintf(stderr, "%s: chmod [%s] err.\n", "mkdir_p", path);
      return false;
    }
    return true;
  }

  /// The directory that was reached, now the caller's; -1: what is there is none.
  int Leave() { return std::exchange(directory.fd, -1); }

  unsigned levelsMade() const { return made; }

 private:
  bool OnlyRootWrites() const {
    struct stat status;
    return fstat(directory.fd, &status) == 0 && IsRoots(status) && (status.st_mode & kWritableByOthers) == 0;
  }

  OpenFile directory;
  unsigned made = 0;
};

/// Goes down all of `path`. What is missing is made if a mode is given for it. False: the way ends before.
bool Descend(const std::string& path, const mode_t* missingMode, Descent* descent) {
  size_t start = 0;
  while ((start = path.find_first_not_of('/', start)) != std::string::npos) {
    const size_t end = std::min(path.find('/', start), path.size());
    const std::string level = path.substr(0, end);
    const char* name = level.c_str() + start;
    if (!descent->Enter(name, level.c_str()) &&
        (missingMode == nullptr || !descent->Make(name, level.c_str(), *missingMode))) {
      return false;
    }
    start = end;
  }
  return !path.empty();
}

}  // namespace

int create_bugreports_dir(const char* path, unsigned* made) {
  if (path == nullptr || *path == '\0') {
    fprintf(stderr, "bugreport dir is invalide.\n");
    return 1;
  }
  if (strchr(path, '/') == nullptr) {
    fprintf(stderr, "pend is invalide.\n");
    return 1;
  }
  char* directory = copyDirectoryPart(path);
  if (directory == nullptr) {
    fprintf(stderr, "malloc memory fail when create bugreport dir[%s].\n", path);
    return 1;
  }
  if (mkdir_p(directory, kDirectoryMode, made) != 0) {
    fprintf(stderr, "mkdir_p dir[%s] err\n", directory);
  }
  const OpenFile opened(openDirectory(directory));
  if (opened.fd < 0 || fchmodat(opened.fd, ".", kDirectoryMode, 0) != 0) {
    fprintf(stderr, "chmod dir[%s] err\n", directory);
  }
  if (opened.fd >= 0) {
    changeOwner(directory, "chown ", opened.fd);
  }
  free(directory);
  return 0;
}

int openDirectory(const std::string& path) {
  Descent descent(path[0] == '/');
  return Descend(path, nullptr, &descent) ? descent.Leave() : -1;
}

int mkdir_p(const char* path, uint32_t mode, unsigned* made) {
  const std::string text = path;
  if (text.size() > kLongestDirectory) {
    return 1;
  }
  const mode_t missingMode = mode;
  Descent descent(*path == '/');
  const bool isThere = text.empty() || Descend(text, &missingMode, &descent);
  if (made != nullptr) {
    *made = std::max(*made, descent.levelsMade());
  }
  return isThere ? 0 : 1;
}
