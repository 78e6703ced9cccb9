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

#include "platform/open_file.h"

namespace Quilcheck {

namespace {

std::string TargetOf(int descriptor) {
  char target[PATH_MAX];
  const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), target, sizeof target);
  return std::string(target, static_cast<size_t>(std::max(length, ssize_t{0})));
}

}  // namespace

Root::Root(const std::string& directory) : fd(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
  const std::string path = fd >= 0 ? TargetOf(fd) : "";
  prefix = path == "/" ? "" : path;
  if (fd >= 0 && OpenFile(Open("/")).fd < 0) {
    close(std::exchange(fd, -1));
  }
}

Root::~Root() {
  if (fd >= 0) {
    close(fd);
  }
}

/// Opens a path as if the directory were the root; -1 when there is no such file, or a kernel before 5.6.
int Root::Open(const std::string& path) const {
  errno = ENOSYS;
  int found = -1;
#ifdef RESOLVE_IN_ROOT
  open_how how = {};
  how.flags = O_PATH | O_CLOEXEC;
  how.resolve = RESOLVE_IN_ROOT;
  found = static_cast<int>(syscall(SYS_openat2, fd, path.c_str(), &how, sizeof how));
#endif
  const bool isMissing = found < 0 && (errno == ENOSYS || errno == EPERM);
  return isMissing && prefix.empty() ? open(path.c_str(), O_PATH | O_CLOEXEC) : found;
}

struct stat Root::StatusOf(const std::string& path) const {
  struct stat status = {};
  const OpenFile found(Open(path));
  if (found.fd >= 0) {
    fstat(found.fd, &status);
  }
  return status;
}

std::string Root::Resolved(const std::string& path) const {
  for (size_t end = path.size(); end != std::string::npos; end = end > 0 ? path.rfind('/', end - 1) : end - 1) {
    const OpenFile found(Open('/' + path.substr(0, end)));
    if (found.fd >= 0) {
      return NormalPath(TargetOf(found.fd).substr(prefix.size()) + '/' + path.substr(end));
    }
  }
  return NormalPath(path);
}

std::string Root::Outside(const std::string& path) const {
  return StatusOf(path).st_mode != 0 ? prefix + Resolved(path) : "";
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
