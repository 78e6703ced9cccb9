#include "quilcheck/root.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#if __has_include(<linux/openat2.h>)
#include <linux/openat2.h>
#endif
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace Quilcheck {

namespace {

/// Opens a path as if `directory` were the root; -1 when there is no such file, or a kernel before 5.6.
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

std::string TargetOf(int descriptor) {
  char target[PATH_MAX];
  const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), target, sizeof target);
  return std::string(target, static_cast<size_t>(std::max(length, ssize_t{0})));
}

}  // namespace

Root::Root(const std::string& directory) : fd(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
  const int found = OpenInRoot(fd, "/");
  if (found >= 0) {
    close(found);
    prefix = TargetOf(fd) == "/" ? "" : TargetOf(fd);
  } else if (fd >= 0) {
    close(std::exchange(fd, -1));
  }
}

Root::~Root() {
  if (fd >= 0) {
    close(fd);
  }
}

std::optional<struct stat> Root::StatusOf(const std::string& path) const {
  struct stat status;
  const int found = OpenInRoot(fd, path);
  const bool isKnown = found >= 0 && fstat(found, &status) == 0;
  if (found >= 0) {
    close(found);
  }
  return isKnown ? std::optional(status) : std::nullopt;
}

std::string Root::Resolved(const std::string& path) const {
  for (size_t end = path.size(); end != std::string::npos; end = end > 0 ? path.rfind('/', end - 1) : end - 1) {
    const int found = OpenInRoot(fd, '/' + path.substr(0, end));
    if (found >= 0) {
      const std::string target = TargetOf(found);
      close(found);
      return NormalPath(target.substr(std::min(prefix.size(), target.size())) + '/' + path.substr(end));
    }
  }
  return NormalPath(path);
}

std::string Root::Outside(const std::string& path) const {
  return StatusOf(path).has_value() ? prefix + Resolved(path) : "";
}

std::string NormalPath(const std::string& path) {
  std::string normal;
  for (size_t start = 0; start < path.size();) {
    const size_t end = std::min(path.find('/', start), path.size());
    const std::string step = path.substr(start, end - start);
    if (step == "..") {
      normal.erase(std::min(normal.rfind('/'), normal.size()));
    } else if (!step.empty() && step != ".") {
      normal += '/' + step;
    }
    start = end + 1;
  }
  return normal;
}

}  // namespace Quilcheck
