// What goes: indexed files beyond the number kept, and the files of the other write mode.

#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "collect/quilbase.h"
#include "logfile/directory_part.h"
#include "logfile/file_names.h"

using namespace QuilCommon;

namespace {

/// Scan modes of processMmapFileVec.
enum : int32_t { kCollectIndexed = 0, kDeleteOthers = 1 };

constexpr int kOldStyleNumbers = 5;
constexpr const char* kOldStyleFormats[] = {"%s.%d", "%s-%d.tar.gz"};

void Unlink(const char* path) {
  if (unlink(path) != 0) {
    fprintf(stderr, "unlink [%s] fail\n", path);
  }
}

/// Calls `use` with each of the ten names that factory mode gives to files of `output`, until it returns true. A name
/// that finds no memory is passed over. Returns the last result.
template <typename Use>
bool AnyOldStyleName(const char* output, Use use) {
  for (int number = 0; number < kOldStyleNumbers; ++number) {
    for (const char* format : kOldStyleFormats) {
      char* name = nullptr;
      if (asprintf(&name, format, output, number) < 0) {
        continue;
      }
      const bool done = use(name);
      free(name);
      if (done) {
        return true;
      }
    }
  }
  return false;
}

}  // namespace

bool Quilbase::detectOldStyleFiles(const char* path) {
  if (!hasOldStyleFiles || outputFilePath == nullptr || strncmp(path, outputFilePath, strlen(outputFilePath)) != 0) {
    return false;
  }
  return AnyOldStyleName(outputFilePath, [path](const char* name) { return strcmp(path, name) == 0; });
}

void Quilbase::processMmapFileVec(int32_t mode) {
  if (mode != kCollectIndexed && mode != kDeleteOthers) {
    return;
  }
  if (outputFilePath == nullptr || strchr(outputFilePath, '/') == nullptr) {
    return;
  }
  char* path = copyDirectoryPart(outputFilePath);
  if (path == nullptr) {
    fprintf(stderr, "malloc memory fail when form file vectors.\n");
    return;
  }
  DIR* directory = opendir(path);
  if (directory == nullptr) {
    fprintf(stderr, "open pdir error.\n");
    free(path);
    return;
  }
  while (const dirent* entry = readdir(directory)) {
    if (entry->d_type == DT_REG && !scanEntry(path, entry->d_name, mode)) {
      break;
    }
  }
  closedir(directory);
  free(path);
}

/// Collects or deletes one regular file of the output directory. False: no memory for its path.
bool Quilbase::scanEntry(const char* directory, const char* name, int32_t mode) {
  char* path = nullptr;
  const int length = asprintf(&path, "%s/%s", directory, name);
  if (length < 0) {
    return false;
  }
  const char* baseName = strrchr(outputFilePath, '/') + 1;
  const bool isCandidate =
      !detectOldStyleFiles(path) && strstr(path, baseName) != nullptr && strstr(path, ".gz") != nullptr;
  const bool isIndexed = static_cast<size_t>(length) == strlen(outputFilePath) + FileNames::kSuffixLength;
  if (isCandidate && isIndexed && mode == kCollectIndexed) {
    logFileVec.emplace_back(path);
  } else if (isCandidate && !isIndexed && mode == kDeleteOthers && unlink(path) != 0) {
    fprintf(stderr, "processMmapFileVec unlink [%s] fail\n", path);
  }
  free(path);
  return true;
}

void Quilbase::deleteOldStyleFiles() {
  if (!hasOldStyleFiles) {
    return;
  }
  if (writeMode == WRITE_FACTORY) {
    for (const std::string& path : logFileVec) {
      Unlink(path.c_str());
    }
    logFileVec.clear();
  } else {
    AnyOldStyleName(outputFilePath, [](const char* name) {
      Unlink(name);
      return false;
    });
    processMmapFileVec(kDeleteOthers);
  }
  hasOldStyleFiles = false;
  formFileVectors();
}

void Quilbase::removeRedundancy() {
  if (writeMode == WRITE_FACTORY || logFileVec.size() <= maxFiles) {
    return;
  }
  const auto kept = logFileVec.end() - static_cast<std::ptrdiff_t>(maxFiles);
  for (auto path = logFileVec.begin(); path != kept; ++path) {
    Unlink(path->c_str());
  }
  logFileVec.erase(logFileVec.begin(), kept);
}
