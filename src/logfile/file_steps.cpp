#include "logfile/file_steps.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

bool fileExists(int directory, const std::string& name) {
  return faccessat(directory, name.c_str(), F_OK, 0) == 0;
}

void unlinkFile(const std::string& path) {
  if (unlink(path.c_str()) != 0) {
    fprintf(stderr, "unlink [%s] fail\n", path.c_str());
  }
}

bool renameIfThere(int source, const std::string& from, int target, const std::string& to, const char* message) {
  const bool renamed = renameat(source, from.c_str(), target, to.c_str()) == 0;
  if (!renamed && errno != ENOENT) {
    perror(message);
  }
  return renamed;
}

int releaseSymlink(const std::string& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode) && unlink(path.c_str()) != 0) {
    fprintf(stderr, "unlink [%s] fail\n", path.c_str());
    return 1;
  }
  return 0;
}
