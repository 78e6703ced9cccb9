#ifndef QUILCAT_LOGFILE_ROTATED_FILES_H_
#define QUILCAT_LOGFILE_ROTATED_FILES_H_

#include <stdint.h>

#include <string>

#include "logfile/file_names.h"
#include "platform/open_file.h"

class PackingDirectory;

/// What a factory output keeps beside its live file O: the rotated files O.1, the newest, to O.5, and the archives
/// O-0.tar.gz, the newest, and on, each of five rotated files.
///
/// The five are packed in a directory of their own, O_tmp, and are deleted when the archive is whole and on disk, not
/// before. Each step leaves a state from which the next rotation or the next start goes on, so that the process may
/// die, or the disk be full, at any of them. Not thread-safe. Failures are reported on standard error, and the next
/// step follows.
///
/// An object holds the log directory open, for one rotation or one start: all its steps are taken there, whatever the
/// directory's name stands for meanwhile.
///
/// A thread that is asked to stop packs no more, and breaks off what it packs: the files wait for the next start.
class RotatedFiles {
 public:
  /// `livePath` is O; `maxFiles` archives are kept. With 0 there are none, and O.5 is replaced at each rotation.
  RotatedFiles(const std::string& livePath, uint64_t maxFiles);

  /// False: the directory is not to be had, and each step fails.
  bool isOpen() const { return directory.fd >= 0; }

  /// Moves O.4 to O.5 and so on down to O to O.1. O is then free; it must be closed. Five files that could not be moved
  /// away to be packed are tried again first; the oldest is replaced when they still cannot. Where a stop leaves them
  /// no time, nothing is moved, and O grows.
  void shift();

  /// Makes an archive of the five files if there are that many. Files that could not be packed earlier are tried again
  /// first; they are given up when they still cannot and others need their place.
  void packIfFull();

  /// Moves the files that a process did not come to, which died between two steps of a rotation. Otherwise the next
  /// rotation would put new files over those that are not archived yet. What is to be packed then is left to
  /// packIfFull().
  void finishInterruptedRotation();

 private:
  std::string numbered(int number) const;
  std::string archive(int number) const { return FileNames::archive(base, number); }

  void shiftInto(int vacant);
  void compressLogsFactory(PackingDirectory& packing);
  void compressRunFactory(PackingDirectory& packing);
  void makeRoom() const;
  void moveArchivesUp(bool resumed);

  const std::string logFilePath;
  const std::string base;
  const uint64_t maxFiles;
  const OpenFile directory;  ///< none: it is not to be had, and each step fails
};

#endif  // QUILCAT_LOGFILE_ROTATED_FILES_H_
