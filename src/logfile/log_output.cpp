#include "logfile/log_output.h"

#include <stdio.h>
#include <unistd.h>

#include "logfile/output_directory.h"
#include "thread/thread_base.h"

namespace {

constexpr int kSetUpTries = 10;

}  // namespace

LogOutput::LogOutput(const Settings& settings, Owner& told)
    : owner(told),
      outputFilePath(settings.outputFilePath),
      prevLinkPath(outputFilePath != nullptr ? FileNames::previousLink(outputFilePath) : std::string()),
      rotateSizeKB(settings.rotateSizeKB),
      maxFiles(settings.maxFiles),
      files(outputFilePath != nullptr ? outputFilePath : "") {}

int LogOutput::setupOutput() {
  int result = 0;
  for (int tries = kSetUpTries; tries > 0; --tries) {
    if (outputFilePath != nullptr && create_bugreports_dir(outputFilePath) != 0) {
      fprintf(stderr, "create bugreports dir error!!\n");
      return 1;
    }
    const bool stood = isDirectoryThere();
    changingFile = true;
    result = openOutput();
    changingFile = false;
    // Somebody may remove the directory in between. Until the next set-up text would be refused, which ends a stream.
    if (!stood || isDirectoryThere()) {
      break;
    }
  }
  owner.outputDirectoryMade();
  return result;
}

bool LogOutput::isDirectoryThere() const {
  const std::string path = outputFilePath != nullptr ? outputFilePath : "/";
  return access(path.substr(0, path.rfind('/') + 1).c_str(), F_OK) == 0;
}

void LogOutput::prepareWrite(size_t len, bool lineDone) {
  if (!changingFile) {
    setUpIfNeeded();
    lookedInRun = inRun;
    if (lineComplete && !logFilePath.empty() && rotateSizeKB != 0 && (curFileBytes + len) / 1024 >= rotateSizeKB) {
      changingFile = true;
      rotate();
      changingFile = false;
      lookedInRun = false;  // where no file is kept, the new one is gone already
    }
  }
  lineComplete = lineDone;
}

void LogOutput::setUpIfNeeded() {
  // For a thread that is to stop there is no later time.
  if (!needsSetUp() || (Clock::now() < nextSetUp && !ThreadBase::currentStopRequested())) {
    return;
  }
  setupOutput();
  if (needsSetUp()) {
    nextSetUp = Clock::now() + kPause;
  }
}

bool LogOutput::needsSetUp() const {
  if (isFileDead()) {
    return true;
  }
  return !lookedInRun && (logFilePath.empty() || !isFileThere());
}

/// Names are compared with names: there are file systems on which a descriptor tells another device than its name.
bool LogOutput::isFileThere() const {
  struct stat status;
  return lstat(logFilePath.c_str(), &status) == 0 && status.st_dev == openedFile.st_dev &&
         status.st_ino == openedFile.st_ino;
}

void LogOutput::noteFile() {
  if (lstat(logFilePath.c_str(), &openedFile) != 0) {
    openedFile = {};
  }
}

void LogOutput::beginRun() {
  inRun = true;
}

int LogOutput::endRun() {
  lookedInRun = false;
  const int refused = writeCollected();
  inRun = false;
  return refused;
}

int LogOutput::offerAgain() {
  if (holdsText()) {
    setUpIfNeeded();
  }
  return writeCollected();
}

void LogOutput::setUpForHeldText() {
  if (!changingFile && isFileDead()) {
    setUpIfNeeded();
    holdsText();
  }
}
