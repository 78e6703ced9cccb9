#include "logfile/log_output.h"

#include <stdio.h>
#include <string.h>
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
      keepsRefused(settings.keepRefused),
      files(outputFilePath != nullptr ? outputFilePath : "") {}

int LogOutput::setupOutput() {
  int result = 0;
  // While the directory's owner is changed, too, a wake of the worker is not to begin another set-up in this one.
  changingFile = true;
  for (int tries = kSetUpTries; tries > 0; --tries) {
    if (outputFilePath != nullptr && create_bugreports_dir(outputFilePath, &madeDirectories) != 0) {
      fprintf(stderr, "create bugreports dir error!!\n");
      changingFile = false;
      return 1;
    }
    const bool wasThere = isDirectoryThere();
    result = openOutput();
    // Somebody may remove the directory in between. Until the next set-up text would be refused, which ends a stream.
    if (!wasThere || isDirectoryThere()) {
      break;
    }
  }
  changingFile = false;
  owner.outputDirectoryMade();
  return result;
}

bool LogOutput::isDirectoryThere() const {
  const std::string path = outputFilePath != nullptr ? outputFilePath : "/";
  return access(path.substr(0, path.rfind('/') + 1).c_str(), F_OK) == 0;
}

size_t LogOutput::writeLines(const char* data, size_t len) {
  size_t done = 0;
  while (done < len) {
    setUpIfNeeded();
    const size_t size = linesBeforeRotation(data + done, len - done);
    const size_t taken = write(data + done, size, true);
    done += taken;
    if (taken < size) {
      break;
    }
  }
  return done;
}

/// The size of the lines that do not reach the rotation size; of one line where there are none.
size_t LogOutput::linesBeforeRotation(const char* data, size_t len) const {
  const uint64_t limit = rotateSizeKB * 1024;
  const uint64_t room = limit > curFileBytes ? limit - curFileBytes - 1 : 0;
  if (rotateSizeKB == 0 || len <= room) {
    return len;
  }
  const void* feed = memrchr(data, '\n', static_cast<size_t>(room));
  if (feed == nullptr) {
    feed = memchr(data, '\n', len);
  }
  return feed != nullptr ? static_cast<size_t>(static_cast<const char*>(feed) - data) + 1 : len;
}

int LogOutput::logcatWrite(const char* data, size_t len, bool lineDone) {
  if (data == nullptr) {
    return 1;
  }
  setUpIfNeeded();
  return write(data, len, lineDone) == len ? 0 : 1;
}

size_t LogOutput::write(const char* data, size_t len, bool lineDone) {
  const bool isNested = writing.exchange(true);  // a title, in the write that opened its file
  if (!changingFile && lineComplete && !logFilePath.empty() && rotateSizeKB != 0 &&
      (curFileBytes + len) / 1024 >= rotateSizeKB) {
    changingFile = true;
    rotate();
    changingFile = false;
  }
  const size_t taken = append(data, len);
  if (taken == len || !keepsRefused) {
    lineComplete = lineDone;
  } else if (taken != 0) {
    lineComplete = data[taken - 1] == '\n';
  }
  writing = isNested;
  return taken;
}

void LogOutput::setUpIfNeeded() {
  // For a thread that is to stop there is no later time.
  if (changingFile || !needsSetUp() || (Clock::now() < nextSetUp && !ThreadBase::currentStopRequested())) {
    return;
  }
  setupOutput();
  if (needsSetUp()) {
    nextSetUp = Clock::now() + kPause;
  }
}

bool LogOutput::needsSetUp() const {
  return isFileDead() || logFilePath.empty() || !isFileThere();
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

void LogOutput::setUpForHeldText() {
  if (isFileDead()) {
    setUpIfNeeded();
  }
}
