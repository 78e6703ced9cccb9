#include "logfile/mapped_output.h"

#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "logfile/change_owner.h"
#include "logfile/empty_files.h"
#include "logfile/file_names.h"
#include "logfile/file_steps.h"
#include "logfile/output_directory.h"
#include "platform/open_file.h"

namespace {

constexpr mode_t kFileMode = 0664;

/// The log directory, held open while a file is begun there: what others put in the place of its name meanwhile leads
/// nowhere else.
class HeldDirectory {
 public:
  /// The one in which `path` lies.
  explicit HeldDirectory(const std::string& path) : directory(openDirectory(path.substr(0, path.rfind('/') + 1))) {}

  int descriptor() const { return directory.fd; }

  /// What leads to the entry of the directory that `path` names.
  std::string inside(const std::string& path) const {
    return "/proc/self/fd/" + std::to_string(directory.fd) + path.substr(path.rfind('/'));
  }

 private:
  const OpenFile directory;
};

void RemoveLink(const HeldDirectory& directory, const std::string& path) {
  if (unlink(directory.inside(path).c_str()) != 0) {
    fprintf(stderr, "refreshSymlink unlink [%s] fail\n", path.c_str());
  }
}

void MakeLink(const HeldDirectory& directory, const std::string& target, const std::string& path) {
  if (symlink(target.c_str(), directory.inside(path).c_str()) != 0) {
    fprintf(stderr, "refreshSymlink symlink [%s] fail\n", target.c_str());
  }
}

/// True when there is nothing at `path`, not even a link. A name can be taken when the list of files is not complete,
/// or when another collector has the same output.
bool IsFree(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) != 0;
}

}  // namespace

MappedOutput::MappedOutput(const Settings& settings, Owner& told)
    : LogOutput(settings, told),
      mmapWriter(static_cast<unsigned>(settings.syncSeconds), settings.keepRefused),
      removesEmpty(settings.removeEmpty) {}

int MappedOutput::openOutput() {
  if (outputFilePath == nullptr) {
    return 0;
  }
  files.formFileVectors();
  if (removesEmpty) {
    removeEmptyFiles(&files);
  }
  removeRedundancy();
  openLogFile();
  return 0;
}

size_t MappedOutput::append(const char* data, size_t len) {
  if (!mmapWriter.Write(data, len)) {
    return 0;
  }
  curFileBytes += len;
  return len;
}

void MappedOutput::rotate() {
  const bool wasCleaned = !hasOldStyleFiles;
  deleteOldStyleFiles();
  const bool hadText = !mmapWriter.Flush() || curFileBytes != 0;
  if (wasCleaned && hadText && mmapWriter.outputEmpty()) {
    curFileBytes = 0;  // the disk is full: one empty file after the other would push out those that hold text
    return;
  }
  openLogFile();
  removeRedundancy();
}

MappedOutput::~MappedOutput() {
  if (!mmapWriter.Flush() && mmapWriter.outputOver()) {
    // Text that the file did not take waits for another one.
    beginNextFile();
  }
}

/// Ends the current file and starts the one with the next index, which takes the text that is pending: a set-up found
/// that the file before is gone.
void MappedOutput::openLogFile() {
  if (beginNextFile()) {
    mmapWriter.Flush();
    owner.outputDirectoryMade();  // a title may take long, and somebody look meanwhile
    owner.openLogFilePost();
  }
}

/// All of it but the file's first text. False: there is no new file.
bool MappedOutput::beginNextFile() {
  if (!openIndexedFile()) {
    return false;
  }
  noteFile();
  files.add(logFilePath);
  curFileBytes = 0;
  const int file = mmapWriter.outputDescriptor();
  if (file < 0) {
    fprintf(stderr, "open or mmap file[%s] err \n", logFilePath.c_str());
    return false;
  }
  if (fchmod(file, kFileMode) != 0) {
    fprintf(stderr, "fchmod file[%s] err\n", logFilePath.c_str());
  }
  changeOwner(logFilePath.c_str(), "chown ", file);
  refreshSymlink();
  return true;
}

/// Has the writer go on in a new file with the next index that is free. False: no memory for its path, the old file
/// stays.
bool MappedOutput::openIndexedFile() {
  const HeldDirectory directory(outputFilePath);
  const int32_t first = files.nextIndex();
  for (int32_t i = 0; i < FileNames::kIndexes; ++i) {
    const std::string path = files.pathOf((first + i) % FileNames::kIndexes);
    if (path.empty()) {
      return false;
    }
    const std::string inside = directory.inside(path);
    if (!IsFree(inside)) {
      continue;
    }
    logFilePath = path;
    if (mmapWriter.SetOutputPath(inside.c_str(), directory.descriptor(), std::exchange(madeDirectories, 0))) {
      return true;
    }
    // Somebody may have taken the name since; then the next one.
    if (mmapWriter.outputDescriptor() >= 0 || IsFree(inside)) {
      break;
    }
  }
  fprintf(stderr, "error while set mmap output path\n");
  return true;
}

void MappedOutput::refreshSymlink() {
  const HeldDirectory directory(outputFilePath);
  RemoveLink(directory, outputFilePath);
  RemoveLink(directory, prevLinkPath);
  MakeLink(directory, logFilePath, outputFilePath);
  const std::vector<std::string>& paths = files.paths();
  if (paths.size() >= 2) {
    MakeLink(directory, paths[paths.size() - 2], prevLinkPath);
  }
}

/// Removes what factory mode left, once.
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
