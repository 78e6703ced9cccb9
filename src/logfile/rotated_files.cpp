#include "logfile/rotated_files.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "archive/tar_zip.h"
#include "logfile/file_steps.h"

namespace {

constexpr int kRotatedFiles = 5;
constexpr mode_t kTemporaryDirectoryMode = 0775;

/// Brings a finished archive to disk: the files that it holds are deleted next, and both must not be lost together.
void SyncFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    fsync(fd);
    close(fd);
  }
}

}  // namespace

RotatedFiles::RotatedFiles(std::string livePath, uint64_t archives)
    : logFilePath(std::move(livePath)), maxFiles(archives) {}

/// 0 -> O, 1 -> O.1
std::string RotatedFiles::numbered(int number) const {
  return number == 0 ? logFilePath : logFilePath + '.' + std::to_string(number);
}

/// 0 -> O-0.tar.gz
std::string RotatedFiles::archive(int number) const {
  return logFilePath + '-' + std::to_string(number) + ".tar.gz";
}

/// "name" -> O_tmp/name
std::string RotatedFiles::inDirectory(const char* name) const {
  return logFilePath + "_tmp/" + name;
}

/// 1 -> O_tmp/B.1
std::string RotatedFiles::moved(int number) const {
  const std::string file = numbered(number);
  return inDirectory(file.c_str() + file.rfind('/') + 1);
}

void RotatedFiles::shift() {
  shiftInto(kRotatedFiles);
}

/// Moves O.(vacant - 1) to O.vacant, and so on down to O to O.1.
void RotatedFiles::shiftInto(int vacant) {
  for (int number = vacant; number >= 1; --number) {
    renameIfThere(numbered(number - 1), numbered(number), "while rotating log files");
  }
}

void RotatedFiles::packIfFull() {
  if (maxFiles != 0 && fileExists(numbered(kRotatedFiles))) {
    compressLogsFactory();
  }
}

/// Moves the five files into a directory of their own and packs them there.
void RotatedFiles::compressLogsFactory() {
  if (mkdir((logFilePath + "_tmp").c_str(), kTemporaryDirectoryMode) != 0) {
    perror("couldn't create compress dir");
  }
  for (int number = kRotatedFiles; number >= 1; --number) {
    if (rename(numbered(number).c_str(), moved(number).c_str()) != 0) {
      perror("while rename log files");
    }
  }
  compressRunFactory();
}

/// Packs the five files in the directory into O-0.tar.gz.
///
/// The archive is written inside the directory and only takes its place when it is whole, so that the process may die
/// at any step: a file "packed.tar.gz" there says that the five files are in it and may go, without it they are packed
/// anew.
void RotatedFiles::compressRunFactory() {
  const std::string packed = inDirectory("packed.tar.gz");
  const bool resumed = fileExists(packed);
  if (!resumed) {
    packMovedFiles();
    renameIfThere(inDirectory("unfinished.tar.gz"), packed, "while rename compressed files");
  }
  deleteMovedFiles();
  if (fileExists(packed)) {
    moveArchivesUp(resumed);
    renameIfThere(packed, archive(0), "while rename compressed files");
  }
  if (rmdir((logFilePath + "_tmp").c_str()) != 0) {
    perror("unlink failed");
  }
}

void RotatedFiles::packMovedFiles() {
  std::string names[kRotatedFiles];
  const char* paths[kRotatedFiles];
  for (int i = 0; i < kRotatedFiles; ++i) {
    names[i] = moved(i + 1);
    paths[i] = names[i].c_str();
  }
  const std::string unfinished = inDirectory("unfinished.tar.gz");
  tar_zip_files(kRotatedFiles, paths, unfinished.c_str(), 0);
  SyncFile(unfinished);
}

void RotatedFiles::deleteMovedFiles() {
  for (int number = 1; number <= kRotatedFiles; ++number) {
    if (unlink(moved(number).c_str()) != 0) {
      perror("unlink failed");
    }
  }
}

/// Gives each archive the next number; the oldest is replaced. `resumed` says that a run died on the way: the archives
/// above the lowest number that is free have moved already.
void RotatedFiles::moveArchivesUp(bool resumed) {
  const int last = static_cast<int>(maxFiles) - 1;
  int vacant = last;
  if (resumed) {
    vacant = 0;
    while (vacant < last && fileExists(archive(vacant))) {
      ++vacant;
    }
  }
  for (int number = vacant; number >= 1; --number) {
    renameIfThere(archive(number - 1), archive(number), "while rename compressed files");
  }
}

void RotatedFiles::finishInterruptedRotation() {
  if (maxFiles == 0) {
    return;
  }
  if (fileExists(inDirectory("packed.tar.gz"))) {
    compressRunFactory();
  } else if (fileExists(moved(kRotatedFiles))) {
    for (int number = kRotatedFiles - 1; number >= 1; --number) {
      if (!fileExists(moved(number))) {
        renameIfThere(numbered(number), moved(number), "while rename log files");
      }
    }
    compressRunFactory();
  } else if (fileExists(numbered(kRotatedFiles))) {
    const int vacant = firstVacantNumber();
    if (vacant < kRotatedFiles) {
      shiftInto(vacant);
    }
    compressLogsFactory();
  }
}

/// The lowest number from 1 on that no rotated file has.
int RotatedFiles::firstVacantNumber() const {
  int number = 1;
  while (number < kRotatedFiles && fileExists(numbered(number))) {
    ++number;
  }
  return number;
}
