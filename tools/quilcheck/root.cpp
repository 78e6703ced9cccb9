#include "quilcheck/root.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Quilcheck {

Root::Root(const std::string& directory)
    : prefix(directory), fd(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}

Root::~Root() {
  if (fd >= 0) {
    close(fd);
  }
}

std::optional<struct stat> Root::Look(const std::string& path) const {
  struct stat status;
  open_how how = {};
  how.flags = O_PATH | O_CLOEXEC;
  how.resolve = RESOLVE_IN_ROOT;
  const auto found = static_cast<int>(syscall(SYS_openat2, fd, path.c_str(), &how, sizeof how));
  if (found >= 0) {
    const bool known = fstat(found, &status) == 0;
    close(found);
    return known ? std::optional(status) : std::nullopt;
  }
  // A kernel before 5.6, or a sandbox that knows no better.
  if ((errno == ENOSYS || errno == EPERM) && stat((prefix + '/' + path).c_str(), &status) == 0) {
    return status;
  }
  return std::nullopt;
}

}  // namespace Quilcheck
