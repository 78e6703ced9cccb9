#include "logfile/mapped_output.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "logfile/change_owner.h"
#include "logfile/file_names.h"
#include "logfile/file_steps.h"

namespace {

constexpr mode_t kFileMode = 0664;
constexpr mode_t kNewFileMode = 0700;

void RemoveLink(const char* path) {
  if (unlink(path) != 0) {
    fprintf(stderr, "refreshSymlink unlink [%s] fail\n", path);
  }
}

void MakeLink(const std::string& target, const char* path) {
  if (symlink(target.c_str(), path) != 0) {
    fprintf(stderr, "refreshSymlink symlink [%s] fail\n", target.c_str());
  }
}

/// Makes the file at `path` if none stands there. False: one does. A name can be taken when the list of files is not
/// complete, or when another collector has the same output; its file must not be emptied under its mapping.
bool MakeNewFile(const std::string& path) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kNewFileMode);
  if (fd >= 0) {
    close(fd);
    return true;
  }
  return errno != EEXIST && access(path.c_str(), F_OK) != 0;
}

}  // namespace

MappedOutput::MappedOutput(const Settings& settings, Owner& told) : LogOutput(settings, told) {}

int MappedOutput::openOutput() {
  if (outputFilePath == nullptr) {
    return 0;
  }
  files.formFileVectors();
  removeRedundancy();
  openLogFile();
  return 0;
}

int MappedOutput::mmapWrite(const char* data, size_t len, bool lineDone) {
  if (data == nullptr) {
    return 1;
  }
  prepareWrite(len, lineDone);
  if (!mmapWriter.Write(data, len)) {
    return 1;
  }
  curFileBytes += len;
  return 0;
}

void MappedOutput::rotate() {
  deleteOldStyleFiles();
  openLogFile();
  removeRedundancy();
}

/// Ends the current file and starts the one with the next index.
void MappedOutput::openLogFile() {
  mmapWriter.Flush();
  if (!formIndexedPath()) {
    return;
  }
  files.add(logFilePath);
  if (!mmapWriter.SetOutputPath(logFilePath.c_str())) {
    fprintf(stderr, "error while set mmap output path\n");
  }
  curFileBytes = 0;
  // This descriptor only serves to adjust the file: the writer keeps its own mapping.
  const int logFd = open(logFilePath.c_str(), O_WRONLY | O_CLOEXEC, kFileMode);
  if (logFd < 0) {
    fprintf(stderr, "open or mmap file[%s] err \n", logFilePath.c_str());
    return;
  }
  if (fchmod(logFd, kFileMode) != 0) {
    fprintf(stderr, "fchmod file[%s] err\n", logFilePath.c_str());
  }
  changeOwner(logFilePath.c_str(), "chown ");
  refreshSymlink();
  close(logFd);
  startFile();
}

/// Puts the path of a new indexed file into logFilePath. False: no memory, the old path stays.
bool MappedOutput::formIndexedPath() {
  const int32_t first = files.nextIndex();
  std::string path;
  for (int32_t i = 0; i < FileNames::kIndexes; ++i) {
    path = files.pathOf((first + i) % FileNames::kIndexes);
    if (path.empty()) {
      return false;
    }
    if (MakeNewFile(path)) {
      break;
    }
  }
  logFilePath = path;
  return true;
}

void MappedOutput::refreshSymlink() {
  RemoveLink(outputFilePath);
  RemoveLink(prevLinkPath.c_str());
  MakeLink(logFilePath, outputFilePath);
  const std::vector<std::string>& paths = files.paths();
  if (paths.size() >= 2) {
    MakeLink(paths[paths.size() - 2], prevLinkPath.c_str());
  }
}

/// Removes what factory mode left beside the output, once.
void MappedOutput::deleteOldStyleFiles() {
  if (!hasOldStyleFiles) {
    return;
  }
  for (const std::string& path : files.oldStyleNames()) {
    unlinkFile(path);
  }
  for (const std::string& path : files.otherCompressedFiles()) {
    if (unlink(path.c_str()) != 0) {
      fprintf(stderr, "processMmapFileVec unlink [%s] fail\n", path.c_str());
    }
  }
  hasOldStyleFiles = false;
  files.formFileVectors();
  removeRedundancy();
}

/// Deletes the oldest files beyond the number kept.
void MappedOutput::removeRedundancy() {
  for (const std::string& path : files.takeSurplus(maxFiles)) {
    unlinkFile(path);
  }
}

void MappedOutput::logcatClose() {
  mmapWriter.Flush();
}

void MappedOutput::flushUnlessBusy() {
  mmapWriter.FlushUnlessBusy();
}
