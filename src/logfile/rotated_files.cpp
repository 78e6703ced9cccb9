#include "logfile/rotated_files.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include "logfile/file_steps.h"
#include "logfile/output_directory.h"
#include "logfile/packing_directory.h"
#include "thread/thread_base.h"

RotatedFiles::RotatedFiles(const std::string& livePath, uint64_t archives)
    : logFilePath(livePath),
      base(livePath.substr(livePath.rfind('/') + 1)),
      maxFiles(archives),
      directory(openDirectory(livePath.substr(0, livePath.rfind('/') + 1))) {}

/// 0 -> B, 1 -> B.1
std::string RotatedFiles::numbered(int number) const {
  return number == 0 ? base : FileNames::rotated(base, number);
}

void RotatedFiles::shift() {
  if (maxFiles != 0 && fileExists(directory.fd, numbered(PackingDirectory::kFiles))) {
    packIfFull();  // a full disk may have had no room for the directory that the five were to be packed in
    if (ThreadBase::currentStopRequested()) {
      return;
    }
  }
  shiftInto(PackingDirectory::kFiles);
}

/// Moves O.(vacant - 1) to O.vacant, and so on down to O to O.1.
void RotatedFiles::shiftInto(int vacant) {
  for (int number = vacant; number >= 1; --number) {
    renameIfThere(directory.fd, numbered(number - 1), directory.fd, numbered(number), "while rotating log files");
  }
}

void RotatedFiles::packIfFull() {
  if (maxFiles == 0 || ThreadBase::currentStopRequested()) {
    return;
  }
  PackingDirectory packing(directory.fd, logFilePath);
  if (packing.isOpen()) {
    compressRunFactory(packing);
  }
  if (fileExists(directory.fd, numbered(PackingDirectory::kFiles)) && !ThreadBase::currentStopRequested()) {
    compressLogsFactory(packing);
  }
}

/// Moves the five files into a directory of their own and packs them there.
void RotatedFiles::compressLogsFactory(PackingDirectory& packing) {
  makeRoom();
  if (packing.isOpen()) {
    fprintf(stderr, "giving up five log files of %s that could not be packed\n", logFilePath.c_str());
    packing.DeleteFiles();
    packing.DeleteArchive();  // or the new five would be taken for those that are in it
    packing.Remove();
  }
  packing.Make();
  if (!packing.isOpen()) {
    return;
  }
  for (int number = PackingDirectory::kFiles; number >= 1; --number) {
    packing.MoveIn(number);
  }
  compressRunFactory(packing);
}

/// Packs the files in the directory into O-0.tar.gz.
///
/// The archive is written inside the directory and only takes its place when it is whole, so that the process may die
/// at any step: a file "packed.tar.gz" there says that the files are in it and may go, without it they are packed anew.
/// What could not be packed, and a whole archive that could not take its place, stays there.
void RotatedFiles::compressRunFactory(PackingDirectory& packing) {
  const bool resumed = packing.isPacked();
  if (!resumed && packing.holdsFiles()) {
    makeRoom();
    if (!packing.Pack()) {
      if (!ThreadBase::currentStopRequested()) {
        fprintf(stderr, "couldn't pack log files of %s, they stay in its compress dir\n", logFilePath.c_str());
      }
      return;
    }
  }
  if (packing.isPacked()) {
    packing.DeleteFiles();
    moveArchivesUp(resumed);
    packing.Release(archive(0));
    if (packing.isPacked()) {
      return;
    }
  }
  packing.Remove();
}

/// Deletes the oldest archive if it is replaced at the end of a packing anyway: its room is needed before.
void RotatedFiles::makeRoom() const {
  const int last = static_cast<int>(maxFiles) - 1;
  if (last == 0 || fileExists(directory.fd, archive(last - 1))) {
    unlinkat(directory.fd, archive(last).c_str(), 0);
  }
}

/// Gives each archive the next number; the oldest is replaced. `resumed` says that a run died on the way: the archives
/// above the lowest number that is free have moved already.
void RotatedFiles::moveArchivesUp(bool resumed) {
  const int last = static_cast<int>(maxFiles) - 1;
  int vacant = last;
  if (resumed) {
    vacant = 0;
    while (vacant < last && fileExists(directory.fd, archive(vacant))) {
      ++vacant;
    }
  }
  for (int number = vacant; number >= 1; --number) {
    renameIfThere(directory.fd, archive(number - 1), directory.fd, archive(number), "while rename compressed files");
  }
}

void RotatedFiles::finishInterruptedRotation() {
  if (maxFiles == 0) {
    return;
  }
  if (const PackingDirectory packing(directory.fd, logFilePath); packing.isOpen()) {
    packing.MoveInRest();
  }
  if (!fileExists(directory.fd, numbered(PackingDirectory::kFiles))) {
    return;
  }
  int vacant = 1;
  while (fileExists(directory.fd, numbered(vacant))) {
    ++vacant;
  }
  if (vacant < PackingDirectory::kFiles) {
    shiftInto(vacant);
  }
}
