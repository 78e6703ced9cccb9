#include "logfile/output_directory.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "logfile/change_owner.h"
#include "logfile/directory_part.h"
#include "logfile/file_steps.h"
#include "safestr/safestr.h"

namespace {

constexpr mode_t kDirectoryMode = 0775;
constexpr size_t kDirectoryTextSize = 256;
constexpr size_t kLongestDirectory = kDirectoryTextSize - 2;  // a "/" and the terminator have room behind it

/// Opens the directory at `path`, but none that a link leads to: whoever may write above it could put a link there, and
/// have another directory given away. -1: there is none.
int OpenDirectory(const char* path) {
  return open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

/// Makes one level of a directory path. False: reported.
bool MakeLevel(const char* path, mode_t mode) {
  if (access(path, F_OK) == 0) {
    return true;
  }
  if (mkdir(path, mode) != 0) {
    fprintf(stderr, "%s: mkdir [%s] err.\n", "mkdir_p", path);
    return false;
  }
  // mkdir is subject to the file-creation mask.
  const int level = OpenDirectory(path);
  const bool adjusted = level >= 0 && fchmod(level, mode) == 0;
  if (level >= 0) {
    close(level);
  }
  if (!adjusted) {
    fprintf(stderr, "%s: chmod [%s] err.\n", "mkdir_p", path);
    return false;
  }
  return true;
}

}  // namespace

int create_bugreports_dir(const char* path) {
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
  releaseSymlink(directory);
  if (mkdir_p(directory, kDirectoryMode) != 0) {
    fprintf(stderr, "mkdir_p dir[%s] err\n", directory);
  }
  const int opened = OpenDirectory(directory);
  if (opened < 0 || fchmod(opened, kDirectoryMode) != 0) {
    fprintf(stderr, "chmod dir[%s] err\n", directory);
  }
  if (opened >= 0) {
    changeOwner(directory, "chown ", opened);
    close(opened);
  }
  free(directory);
  return 0;
}

int mkdir_p(const char* path, uint32_t mode) {
  const size_t length = strlen(path);
  if (length > kLongestDirectory) {
    return 1;
  }
  char text[kDirectoryTextSize];
  memset_s(text, sizeof text, 0, sizeof text);
  strncpy_s(text, sizeof text, path, kLongestDirectory);
  if (length == 0 || text[length - 1] != '/') {
    text[length] = '/';
  }
  // A leading "/" is no level of its own.
  for (char* slash = text; (slash = strchr(slash + 1, '/')) != nullptr;) {
    *slash = '\0';
    const bool made = MakeLevel(text, mode);
    *slash = '/';
    if (!made) {
      return 1;
    }
  }
  return 0;
}
