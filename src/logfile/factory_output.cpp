#include "logfile/factory_output.h"

#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "logfile/change_owner.h"
#include "logfile/file_steps.h"
#include "logfile/live_file.h"
#include "logfile/output_directory.h"
#include "logfile/rotated_files.h"
#include "thread/interruptible.h"

namespace {

constexpr mode_t kLiveFileMode = 0664;

/// A file of 4 GiB has no place in an archive; and a row is ended beyond the size at which it was begun.
constexpr uint64_t kMostKB = (uint64_t{4} << 20) - 1024;

LogOutput::Settings Packable(LogOutput::Settings settings) {
  settings.rotateSizeKB = std::min(settings.rotateSizeKB, kMostKB);
  return settings;
}

}  // namespace

FactoryOutput::FactoryOutput(const Settings& settings, Owner& told)
    : LogOutput(Packable(settings), told), syncPeriod(static_cast<int64_t>(settings.syncSeconds)) {}

FactoryOutput::~FactoryOutput() {
  if (outputFilePath != nullptr) {
    finishFile();
  }
}

int FactoryOutput::openOutput() {
  if (outputFilePath == nullptr) {
    logFd = STDOUT_FILENO;
    return 0;
  }
  if (hasOldStyleFiles) {
    files.formFileVectors();
  }
  logcatClose();
  RotatedFiles rotated(outputFilePath, maxFiles);
  rotated.finishInterruptedRotation();
  openLogFileFactory();
  rotated.packIfFull();
  if (logFd < 0) {
    fprintf(stderr, "couldn't open output file!!\n");
    return 1;
  }
  struct stat status;
  if (fstat(logFd, &status) != 0) {
    fprintf(stderr, "fstat file %s err\n", logFilePath.c_str());
    return 0;
  }
  curFileBytes = static_cast<uint64_t>(status.st_size);
  return 0;
}

size_t FactoryOutput::append(const char* data, size_t len) {
  if (logFd < 0 && !keepsRefused) {
    return len;
  }
  for (size_t done = 0; done < len;) {
    const ssize_t written = logFd >= 0 ? writeOutput(logFd, data + done, len - done) : -1;
    if (written < 0) {
      giveUpWrite();
      return done;
    }
    done += static_cast<size_t>(written);
    curFileBytes += static_cast<size_t>(written);
    isRefusing = false;
  }
  if (len != 0) {
    syncWhenDue();
  }
  return len;
}

/// After a failed write: unless the text is offered again its file is closed.
void FactoryOutput::giveUpWrite() {
  if (!isRefusing) {
    fprintf(stderr, "%s: write fail\n", logFilePath.c_str());
  }
  isRefusing = keepsRefused;
  if (!keepsRefused) {
    logcatClose();
    nextOpening = Clock::now() + kPause;
  }
}

void FactoryOutput::openLogFileFactory() {
  logFilePath = outputFilePath;
  // Links that mmap mode left would lead the text into one of its files, others anywhere.
  releaseSymlink(logFilePath);
  releaseSymlink(prevLinkPath);
  logFd = openLiveFile(outputFilePath);
  newFile.Expect(OpenFile(openDirectory(logFilePath.substr(0, logFilePath.rfind('/') + 1))).fd,
                 std::exchange(madeDirectories, 0));
  noteFile();
  if (logFd < 0) {
    fprintf(stderr, "open file[%s] err\n", outputFilePath);
    return;
  }
  if (fchmod(logFd, kLiveFileMode) != 0) {
    fprintf(stderr, "fchmod file[%s] err\n", outputFilePath);
  }
  changeOwner(outputFilePath, "chown file", logFd);
  owner.openLogFilePost();
}

void FactoryOutput::rotate() {
  deleteOldStyleFiles();
  if (isRefusing && curFileBytes == 0) {
    return;  // the disk is full: one empty file after the other would push out those that hold text
  }
  rotateLogsFactory();
}

void FactoryOutput::rotateLogsFactory() {
  finishFile();
  {
    RotatedFiles rotated(outputFilePath, maxFiles);
    if (!rotated.isOpen()) {
      setupOutput();  // its directory is gone
      return;
    }
    rotated.shift();
    curFileBytes = 0;
    rotated.packIfFull();
  }
  openLogFileFactory();
  if (logFd < 0) {
    perror("couldn't open output file");
  }
}

/// Removes the indexed files that mmap mode left, once.
void FactoryOutput::deleteOldStyleFiles() {
  if (!hasOldStyleFiles) {
    return;
  }
  for (const std::string& path : files.takeSurplus(0)) {
    unlinkFile(path);
  }
  hasOldStyleFiles = false;
}

/// Brings the live file to disk and closes it.
void FactoryOutput::finishFile() {
  if (logFd >= 0) {
    fdatasync(logFd);
  }
  logcatClose();
}

void FactoryOutput::syncWhenDue() {
  if (logFd >= 0 && newFile.Sync(logFd, &syncs)) {
    lastSync = Clock::now();
  }
  if (syncPeriod.count() != 0 && logFd >= 0 && Clock::now() >= lastSync + syncPeriod) {
    fdatasync(logFd);
    lastSync = Clock::now();
  }
}

void FactoryOutput::logcatClose() {
  if (logFd >= 0) {
    close(logFd);
    logFd = -1;
  }
}
