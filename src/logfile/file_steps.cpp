#include "logfile/file_steps.h"

#include <errno.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

bool fileExists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

void unlinkFile(const std::string& path) {
  if (unlink(path.c_str()) != 0) {
    fprintf(stderr, "unlink [%s] fail\n", path.c_str());
  }
}

void renameIfThere(const std::string& from, const std::string& to, const char* message) {
  if (rename(from.c_str(), to.c_str()) != 0 && errno != ENOENT) {
    perror(message);
  }
}

int releaseSymlink(const std::string& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) {
      return 0;
    }
    fprintf(stderr, "lstat file %s err\n", path.c_str());
    return 1;
  }
  if (S_ISLNK(status.st_mode) && unlink(path.c_str()) != 0) {
    fprintf(stderr, "unlink [%s] fail\n", path.c_str());
    return 1;
  }
  return 0;
}
