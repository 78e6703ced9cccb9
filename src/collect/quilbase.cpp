#include "collect/quilbase.h"

#include <stdio.h>
#include <stdlib.h>

#include "collect/monitor_dir.h"
#include "mmaplog/quil.h"

using namespace QuilCommon;

namespace {

constexpr size_t kMostFiles = 1000;  // as many as there are indexes
constexpr size_t kFilesPerArchive = 5;
constexpr uint64_t kDefaultFiles = 10;
constexpr uint64_t kDefaultArchives = 2;

}  // namespace

Quilbase::Quilbase(QuilcatGroup_t* group, type_write mode) {
  if (group == nullptr) {
    return;
  }
  outputFilePath = group->output_file_path;
  if (outputFilePath != nullptr && asprintf(&prevLinkPath, "%s.1", outputFilePath) < 0) {
    prevLinkPath = nullptr;
  }
  writeMode = mode;
  failureRetry = group->failureRetry;
  const bool mapped = writeMode == WRITE_MMAP;
  if (QuilcatInfo_t* info = group->info; info != nullptr) {
    if (info->maxCompressdFiles > kMostFiles) {
      info->maxCompressdFiles = kMostFiles;
    }
    const size_t files = info->maxCompressdFiles;
    maxFiles = mapped ? files : (files + kFilesPerArchive - 1) / kFilesPerArchive;
    rotateSizeKB = info->rotate_size_kbytes;
  } else {
    maxFiles = mapped ? kDefaultFiles : kDefaultArchives;
  }
  if (mapped) {
    mmapWriter = new Quil;
    monitorDir = new MonitorDir(outputFilePath);
    monitorDir->SetupLogBase(this);
    monitorDir->start();
  }
}

Quilbase::~Quilbase() {
  // The monitor flushes the writer: it goes first.
  delete monitorDir;
  delete mmapWriter;
  if (writeMode == WRITE_FACTORY && outputFilePath != nullptr) {
    closeLogFd();
  }
  free(logFilePath);
  free(prevLinkPath);
}
