#include "quilcheck/root.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#if __has_include(<linux/openat2.h>)
#include <linux/openat2.h>
#endif
#include <sys/syscall.h>
#include <unistd.h>

namespace Quilcheck {

namespace {

/// Opens a path as if `directory` were the root; -1 when there is no such file.
int OpenInRoot(int directory, const std::string& path) {
#ifdef RESOLVE_IN_ROOT
  open_how how = {};
  how.flags = O_PATH | O_CLOEXEC;
  how.resolve = RESOLVE_IN_ROOT;
  return static_cast<int>(syscall(SYS_openat2, directory, path.c_str(), &how, sizeof how));
#else
  static_cast<void>(directory);
  static_cast<void>(path);
  errno = ENOSYS;
  return -1;
#endif
}

}  // namespace

Root::Root(const std::string& directory)
    : prefix(directory), fd(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

Root::~Root() {
  if (fd >= 0) {
    close(fd);
  }
}

std::optional<struct stat> Root::StatusOf(const std::string& path) const {
  struct stat status;
  const int found = OpenInRoot(fd, path);
  if (found >= 0) {
    const bool known = fstat(found, &status) == 0;
    close(found);
    return known ? std::optional(status) : std::nullopt;
  }
  // A kernel before 5.6, or a sandbox that does not allow the call.
  if ((errno == ENOSYS || errno == EPERM) && stat((prefix + '/' + path).c_str(), &status) == 0) {
    return status;
  }
  return std::nullopt;
}

std::string Root::Outside(const std::string& path) const {
  const std::optional<struct stat> inside = StatusOf(path);
  if (!inside.has_value()) {
    return "";
  }
  const std::string plain = prefix.substr(0, prefix.find_last_not_of('/') + 1) + path;
  struct stat outside;
  if (stat(plain.c_str(), &outside) == 0 && outside.st_dev == inside->st_dev && outside.st_ino == inside->st_ino) {
    return plain;
  }
  // Followed from outside, a link in the path leads to another file.
  const int found = OpenInRoot(fd, path);
  char target[PATH_MAX];
  const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(found)).c_str(), target, sizeof target);
  if (found >= 0) {
    close(found);
  }
  return length > 0 ? std::string(target, static_cast<size_t>(length)) : plain;
}

}  // namespace Quilcheck
