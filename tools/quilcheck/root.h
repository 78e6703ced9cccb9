#ifndef QUILCAT_TOOLS_QUILCHECK_ROOT_H_
#define QUILCAT_TOOLS_QUILCHECK_ROOT_H_

#include <sys/stat.h>

#include <optional>
#include <string>

namespace Quilcheck {

/// The root directory of a device, or of an unpacked image of one. Symbolic links in it mean what they would there:
/// none leads out of it.
class Root {
 public:
  /// A directory that cannot be opened shows in IsOpen().
  explicit Root(const std::string& directory);
  ~Root();
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;

  bool IsOpen() const { return fd >= 0; }
  /// What stands at an absolute path; nothing when there is none.
  std::optional<struct stat> Look(const std::string& path) const;
  /// The path, for the rest of this machine, of what stands at an absolute path; empty when there is none.
  std::string Outside(const std::string& path) const;

 private:
  const std::string prefix;
  const int fd;
};

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_ROOT_H_
