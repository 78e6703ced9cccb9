// The output of a collector: its directory, the file that it writes now, the links at the newest two, and the writes.

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "collect/monitor_dir.h"
#include "collect/quilbase.h"
#include "logfile/directory_part.h"
#include "logfile/file_names.h"
#include "logfile/owner.h"
#include "mmaplog/quil.h"
#include "safestr/safestr.h"

using namespace QuilCommon;

namespace {

constexpr mode_t kDirectoryMode = 0775;
constexpr mode_t kFileMode = 0664;
constexpr mode_t kNewFileMode = 0700;
constexpr size_t kDirectoryTextSize = 256;
constexpr size_t kLongestDirectory = kDirectoryTextSize - 2;  // a "/" and the terminator have room behind it

void RemoveLink(const char* path) {
  if (path == nullptr || unlink(path) != 0) {
    fprintf(stderr, "refreshSymlink unlink [%s] fail\n", path != nullptr ? path : "(null)");
  }
}

void MakeLink(const char* target, const char* path) {
  if (path == nullptr || symlink(target, path) != 0) {
    fprintf(stderr, "refreshSymlink symlink [%s] fail\n", target);
  }
}

/// Makes the file at `path` if none stands there. False: one does. A name can be taken when the list of files is not
/// complete, or when another collector has the same output; its file must not be emptied under its mapping.
bool MakeNewFile(const char* path) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kNewFileMode);
  if (fd >= 0) {
    close(fd);
    return true;
  }
  return errno != EEXIST && access(path, F_OK) != 0;
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
  if (chmod(path, mode) != 0) {
    fprintf(stderr, "%s: chmod [%s] err.\n", "mkdir_p", path);
    return false;
  }
  return true;
}

}  // namespace

char* copyDirectoryPart(const char* path) {
  const size_t length = static_cast<size_t>(strrchr(path, '/') - path);
  char* directory = static_cast<char*>(malloc(length + 1));
  if (directory != nullptr) {
    memset_s(directory, length + 1, 0, length + 1);
    strncpy_s(directory, length + 1, path, length);
  }
  return directory;
}

int Quilbase::setupOutput() {
  if (outputFilePath == nullptr) {
    logFd = STDOUT_FILENO;
    return 0;
  }
  if (create_bugreports_dir(outputFilePath) != 0) {
    fprintf(stderr, "create bugreports dir error!!\n");
    return 1;
  }
  formFileVectors();
  if (writeMode == WRITE_FACTORY) {
    finishInterruptedRotation();
  }
  openLogFile();
  if (writeMode == WRITE_MMAP) {
    // The directory may have been made, or made anew, just now.
    if (monitorDir != nullptr) {
      monitorDir->WatchDirectories();
    }
    return 0;
  }
  if (logFd < 0) {
    fprintf(stderr, "couldn't open output file!!\n");
    return 1;
  }
  struct stat status;
  if (fstat(logFd, &status) != 0) {
    fprintf(stderr, "fstat file %s err\n", logFilePath);
    return 0;
  }
  curFileBytes = static_cast<uint64_t>(status.st_size);
  return 0;
}

int Quilbase::create_bugreports_dir(const char* path) {
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
  if (mkdir_p(directory, kDirectoryMode) != 0) {
    fprintf(stderr, "mkdir_p dir[%s] err\n", directory);
  }
  if (chmod(directory, kDirectoryMode) != 0) {
    fprintf(stderr, "chmod dir[%s] err\n", directory);
  }
  changeOwner(directory, "chown ");
  free(directory);
  return 0;
}

int Quilbase::mkdir_p(const char* path, uint32_t mode) {
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

void Quilbase::openLogFile() {
  if (outputFilePath == nullptr) {
    return;
  }
  logcatClose();
  if (writeMode != WRITE_MMAP) {
    openLogFileFactory();
    return;
  }
  if (!formIndexedPath()) {
    return;
  }
  logFileVec.emplace_back(logFilePath);
  if (mmapWriter != nullptr && !mmapWriter->SetOutputPath(logFilePath)) {
    fprintf(stderr, "error while set mmap output path\n");
  }
  // This descriptor only serves to adjust the file: the writer keeps its own mapping.
  logFd = open(logFilePath, O_WRONLY | O_CLOEXEC, kFileMode);
  curFileBytes = 0;
  if (logFd < 0) {
    fprintf(stderr, "open or mmap file[%s] err \n", logFilePath);
    return;
  }
  if (fchmod(logFd, kFileMode) != 0) {
    fprintf(stderr, "fchmod file[%s] err\n", logFilePath);
  }
  changeOwner(logFilePath, "chown ");
  refreshSymlink();
  closeLogFd();
  startFile();
}

/// Puts the path of a new indexed file into logFilePath. False: no memory, the old path stays.
bool Quilbase::formIndexedPath() {
  const int32_t first = get_newLogFileIndex(logFileVec);
  for (int32_t i = 0; i < FileNames::kIndexes; ++i) {
    if (!formPath((first + i) % FileNames::kIndexes)) {
      return false;
    }
    if (MakeNewFile(logFilePath)) {
      break;
    }
  }
  return true;
}

bool Quilbase::formPath(int32_t index) {
  char* timeStamp = getTimeStamp();
  char* path = nullptr;
  const bool formed = timeStamp != nullptr && asprintf(&path, "%s.I%03d.%s.gz", outputFilePath, index, timeStamp) >= 0;
  free(timeStamp);
  if (formed) {
    free(logFilePath);
    logFilePath = path;
  }
  return formed;
}

/// Lets the collector write the first text of a new file. That text rotates nothing, however long it is: the file that
/// it would open needs the same text first.
void Quilbase::startFile() {
  settingUpFile = true;
  openLogFilePost();
  settingUpFile = false;
}

void Quilbase::closeLogFd() {
  if (logFd >= 0) {
    close(logFd);
    logFd = -1;
  }
}

void Quilbase::refreshSymlink() {
  if (writeMode != WRITE_MMAP) {
    return;
  }
  RemoveLink(outputFilePath);
  RemoveLink(prevLinkPath);
  MakeLink(logFilePath, outputFilePath);
  if (logFileVec.size() >= 2) {
    MakeLink(logFileVec[logFileVec.size() - 2].c_str(), prevLinkPath);
  }
}

int Quilbase::releaseSymlink(const char* path) {
  if (path == nullptr || access(path, F_OK) != 0) {
    return 0;
  }
  struct stat status;
  if (lstat(path, &status) != 0) {
    fprintf(stderr, "lstat file %s err\n", path);
    return 1;
  }
  if (S_ISLNK(status.st_mode) && unlink(path) != 0) {
    fprintf(stderr, "unlink [%s] fail\n", path);
    return 1;
  }
  return 0;
}

int Quilbase::logcatWrite(const char* data, size_t len, bool lineDone) {
  return writeMode == WRITE_MMAP ? mmapWrite(data, len, lineDone) : factoryWrite(data, len, lineDone);
}

int Quilbase::mmapWrite(const char* data, size_t len, bool lineDone) {
  if (data == nullptr || mmapWriter == nullptr) {
    return 1;
  }
  prepareWrite(len, lineDone);
  if (!mmapWriter->Write(data, len)) {
    return 1;
  }
  curFileBytes += len;
  return 0;
}

/// What comes before a write of `len` bytes in both modes: a file that vanished is set up again, and a file that the
/// write would fill is rotated, between lines only.
void Quilbase::prepareWrite(size_t len, bool lineDone) {
  if (!settingUpFile) {
    if (logFilePath == nullptr || access(logFilePath, F_OK) != 0) {
      setupOutput();
    }
    if (lineComplete && outputFilePath != nullptr && logFilePath != nullptr && rotateSizeKB != 0 &&
        (curFileBytes + len) / 1024 >= rotateSizeKB) {
      rotateLogs();
    }
  }
  lineComplete = lineDone;
}

void Quilbase::rotateLogs() {
  deleteOldStyleFiles();
  if (writeMode == WRITE_FACTORY) {
    rotateLogsFactory();
    return;
  }
  openLogFile();
  removeRedundancy();
}

void Quilbase::logcatClose() {
  if (writeMode != WRITE_MMAP) {
    closeLogFd();
  } else if (mmapWriter != nullptr) {
    mmapWriter->Flush();
  }
}

void Quilbase::flushUnlessBusy() {
  if (mmapWriter != nullptr) {
    mmapWriter->FlushUnlessBusy();
  }
}
