#ifndef QUILCAT_TOOLS_QUILCHECK_ROOT_H_
#define QUILCAT_TOOLS_QUILCHECK_ROOT_H_

#include <sys/stat.h>

#include <string>

namespace Quilcheck {

/// The root directory of a device, or of an unpacked image of one. Symbolic links are followed as on that device, so
/// none leads out of the directory.
class Root {
 public:
  /// IsOpen() tells whether the directory could be opened.
  explicit Root(const std::string& directory);
  ~Root();
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;

  bool IsOpen() const { return fd >= 0; }
  /// The status of the file at an absolute path; all zeros when there is none.
  struct stat StatusOf(const std::string& path) const;
  /// The path without links and steps; what does not exist is as it is spelled.
  std::string Resolved(const std::string& path) const;
  /// The path by which the rest of this machine reaches the file at an absolute path; empty when there is none.
  std::string Outside(const std::string& path) const;

 private:
  int Open(const std::string& path) const;

  int fd;
  std::string prefix;  ///< its path, without a slash at the end
};

/// The absolute path with single slashes, without "." and ".." steps. Links are not followed.
std::string NormalPath(const std::string& path);

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_ROOT_H_
