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
      prevLinkPath(outputFilePath != nullptr ? std::string(outputFilePath) + ".1" : std::string()),
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
    result = openOutput();
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
  if (!settingUpFile) {
    setUpIfNeeded();
    lookedInRun = inRun;
    if (lineComplete && !logFilePath.empty() && rotateSizeKB != 0 && (curFileBytes + len) / 1024 >= rotateSizeKB) {
      rotate();
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
  return !lookedInRun && (logFilePath.empty() || access(logFilePath.c_str(), F_OK) != 0);
}

void LogOutput::beginRun() {
  inRun = true;
}

int LogOutput::endRun() {
  inRun = false;
  lookedInRun = false;
  return writeCollected();
}

int LogOutput::offerAgain() {
  if (holdsText()) {
    setUpIfNeeded();
  }
  return writeCollected();
}

void LogOutput::startFile() {
  settingUpFile = true;
  owner.openLogFilePost();
  settingUpFile = false;
}
