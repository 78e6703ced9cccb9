#include "logfile/directory_part.h"

#include <stdlib.h>
#include <string.h>

#include "safestr/safestr.h"

char* copyDirectoryPart(const char* path) {
  const size_t length = static_cast<size_t>(strrchr(path, '/') - path);
  char* directory = static_cast<char*>(malloc(length + 1));
  if (directory != nullptr) {
    memset_s(directory, length + 1, 0, length + 1);
    strncpy_s(directory, length + 1, path, length);
  }
  return directory;
}
