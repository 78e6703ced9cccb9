#include "logfile/factory_output.h"

#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "logfile/change_owner.h"
#include "logfile/file_steps.h"
#include "logfile/live_file.h"
#include "thread/interruptible.h"

namespace {

constexpr mode_t kLiveFileMode = 0664;

}  // namespace

FactoryOutput::FactoryOutput(const Settings& settings, Owner& told)
    : LogOutput(settings, told),
      rotated(outputFilePath != nullptr ? outputFilePath : "", maxFiles),
      syncPeriod(static_cast<int64_t>(settings.syncSeconds)) {}

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
  rotated.finishInterruptedRotation();
  logcatClose();
  openLogFileFactory();
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

int FactoryOutput::factoryWrite(const char* data, size_t len, bool lineDone) {
  if (data == nullptr) {
    return 1;
  }
  prepareWrite(len, lineDone);
  if (logFd < 0) {
    return 0;
  }
  for (size_t done = 0; done < len;) {
    const ssize_t written = writeOutput(logFd, data + done, len - done);
    if (written < 0) {
      fprintf(stderr, "%s: write fail\n", logFilePath.c_str());
      logcatClose();
      nextOpening = Clock::now() + kPause;
      return 1;
    }
    done += static_cast<size_t>(written);
    curFileBytes += static_cast<size_t>(written);
  }
  syncWhenDue();
  return 0;
}

void FactoryOutput::openLogFileFactory() {
  logFilePath = outputFilePath;
  // Links that mmap mode left would lead the text into one of its files, others anywhere.
  releaseSymlink(logFilePath);
  releaseSymlink(prevLinkPath);
  logFd = openLiveFile(outputFilePath);
  if (logFd < 0) {
    fprintf(stderr, "open file[%s] err\n", outputFilePath);
    return;
  }
  if (fchmod(logFd, kLiveFileMode) != 0) {
    fprintf(stderr, "fchmod file[%s] err\n", outputFilePath);
  }
  changeOwner(outputFilePath, "chown file", logFd);
  startFile();
}

void FactoryOutput::rotate() {
  deleteOldStyleFiles();
  rotateLogsFactory();
}

void FactoryOutput::rotateLogsFactory() {
  finishFile();
  rotated.shift();
  curFileBytes = 0;
  rotated.packIfFull();
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
  if (syncPeriod.count() != 0 && Clock::now() >= lastSync + syncPeriod) {
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
