#include "logfile/log_output.h"

#include <stdio.h>
#include <unistd.h>

#include "logfile/output_directory.h"

LogOutput::LogOutput(const Settings& settings, Owner& told)
    : owner(told),
      outputFilePath(settings.outputFilePath),
      prevLinkPath(outputFilePath != nullptr ? std::string(outputFilePath) + ".1" : std::string()),
      rotateSizeKB(settings.rotateSizeKB),
      maxFiles(settings.maxFiles),
      files(outputFilePath != nullptr ? outputFilePath : "") {}

int LogOutput::setupOutput() {
  if (outputFilePath != nullptr && create_bugreports_dir(outputFilePath) != 0) {
    fprintf(stderr, "create bugreports dir error!!\n");
    return 1;
  }
  const int result = openOutput();
  owner.outputDirectoryMade();
  return result;
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
  if (!needsSetUp() || Clock::now() < nextSetUp) {
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
  setUpIfNeeded();
  return writeCollected();
}

void LogOutput::startFile() {
  settingUpFile = true;
  owner.openLogFilePost();
  settingUpFile = false;
}
