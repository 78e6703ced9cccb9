#include "logfile/rotated_files.h"

#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include "archive/tar_zip.h"
#include "logfile/file_steps.h"
#include "logfile/packing_directory.h"

namespace {

constexpr int kRotatedFiles = PackingDirectory::kFiles;

/// True for a file that no other name leads to. Anything else was put in its place by somebody who may write in the
/// log directory: another name of any file, or a directory with such names in it. Packed, it would be given away.
bool IsOwnFile(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1;
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

void RotatedFiles::shift() {
  // A full disk may have had no room for the directory that the five were to be packed in.
  if (maxFiles != 0 && fileExists(numbered(kRotatedFiles))) {
    compressLogsFactory();
  }
  shiftInto(kRotatedFiles);
}

/// Moves O.(vacant - 1) to O.vacant, and so on down to O to O.1.
void RotatedFiles::shiftInto(int vacant) {
  for (int number = vacant; number >= 1; --number) {
    renameIfThere(numbered(number - 1), numbered(number), "while rotating log files");
  }
}

void RotatedFiles::packIfFull() {
  if (maxFiles == 0) {
    return;
  }
  if (const PackingDirectory left(logFilePath); left.isOpen()) {
    compressRunFactory(left);
  }
  if (fileExists(numbered(kRotatedFiles))) {
    compressLogsFactory();
  }
}

/// Moves the five files into a directory of their own and packs them there.
void RotatedFiles::compressLogsFactory() {
  makeRoom();
  PackingDirectory directory(logFilePath);
  directory.Make();
  if (!directory.isOpen()) {
    return;
  }
  if (directory.holdsFiles() || fileExists(directory.packed())) {
    fprintf(stderr, "giving up five log files of %s that could not be packed\n", logFilePath.c_str());
    directory.DeleteFiles();
    unlink(directory.packed().c_str());  // or the new five would be taken for those that are in it
  }
  for (int number = kRotatedFiles; number >= 1; --number) {
    if (rename(numbered(number).c_str(), directory.file(number).c_str()) != 0) {
      perror("while rename log files");
    }
  }
  compressRunFactory(directory);
}

/// Packs the files in the directory into O-0.tar.gz.
///
/// The archive is written inside the directory and only takes its place when it is whole, so that the process may die
/// at any step: a file "packed.tar.gz" there says that the files are in it and may go, without it they are packed anew.
/// What could not be packed, and a whole archive that could not take its place, stays there.
void RotatedFiles::compressRunFactory(const PackingDirectory& directory) {
  const bool resumed = fileExists(directory.packed());
  if (!resumed && directory.holdsFiles() && !packMovedFiles(directory)) {
    fprintf(stderr, "couldn't pack log files of %s, they stay in its compress dir\n", logFilePath.c_str());
    return;
  }
  if (fileExists(directory.packed())) {
    directory.DeleteFiles();
    moveArchivesUp(resumed);
    renameIfThere(directory.packed(), archive(0), "while rename compressed files");
    if (fileExists(directory.packed())) {
      return;
    }
  }
  directory.Remove();
}

/// Deletes the oldest archive, which goes at the end of a packing anyway: its room is needed before.
void RotatedFiles::makeRoom() const {
  unlink(archive(static_cast<int>(maxFiles) - 1).c_str());
}

/// Leaves packed.tar.gz, or false.
bool RotatedFiles::packMovedFiles(const PackingDirectory& directory) {
  makeRoom();
  std::string names[kRotatedFiles];
  const char* paths[kRotatedFiles];
  for (int i = 0; i < kRotatedFiles; ++i) {
    names[i] = directory.file(i + 1);
    paths[i] = IsOwnFile(names[i]) ? names[i].c_str() : nullptr;
  }
  if (!tar_zip_files(kRotatedFiles, paths, directory.unfinished().c_str(), 0)) {
    return false;
  }
  if (rename(directory.unfinished().c_str(), directory.packed().c_str()) != 0) {
    perror("while rename compressed files");
    return false;
  }
  return true;
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
  if (const PackingDirectory directory(logFilePath); directory.isOpen()) {
    const bool isMoving = !fileExists(directory.packed()) && fileExists(directory.file(kRotatedFiles));
    for (int number = kRotatedFiles - 1; isMoving && number >= 1; --number) {
      if (!fileExists(directory.file(number))) {
        renameIfThere(numbered(number), directory.file(number), "while rename log files");
      }
    }
    compressRunFactory(directory);
  }
  if (!fileExists(numbered(kRotatedFiles))) {
    return;
  }
  const int vacant = firstVacantNumber();
  if (vacant < kRotatedFiles) {
    shiftInto(vacant);
  }
  compressLogsFactory();
}

/// The lowest number from 1 on that no rotated file has.
int RotatedFiles::firstVacantNumber() const {
  int number = 1;
  while (number < kRotatedFiles && fileExists(numbered(number))) {
    ++number;
  }
  return number;
}
