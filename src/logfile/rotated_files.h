#ifndef QUILCAT_LOGFILE_ROTATED_FILES_H_
#define QUILCAT_LOGFILE_ROTATED_FILES_H_

#include <stdint.h>

#include <string>

class PackingDirectory;

/// What a factory output keeps beside its live file O: the rotated files O.1, the newest, to O.5, and the archives
/// O-0.tar.gz, the newest, and on, each of five rotated files.
///
/// The five are packed in a directory of their own, O_tmp, and are deleted when the archive is whole and on disk, not
/// before. Each step leaves a state from which the next rotation or the next start goes on, so that the process may
/// die, or the disk be full, at any of them. Not thread-safe. Failures are reported on standard error, and the next
/// step follows.
class RotatedFiles {
 public:
  /// `livePath` is O; `maxFiles` archives are kept. With 0 there are none, and O.5 is replaced at each rotation.
  RotatedFiles(std::string livePath, uint64_t maxFiles);

  /// Moves O.4 to O.5 and so on down to O to O.1. O is then free; it must be closed. Five files that could not be moved
  /// away to be packed are tried again first; the oldest is replaced when they still cannot.
  void shift();

  /// Makes an archive of the five files if there are that many. Files that could not be packed earlier are tried again
  /// first; they are given up when they still cannot and others need their place.
  void packIfFull();

  /// Goes on where a process died between the first step of a rotation and the end of its packing. Otherwise the next
  /// rotation would put new files over those that are not archived yet.
  void finishInterruptedRotation();

 private:
  std::string numbered(int number) const;
  std::string archive(int number) const;

  void shiftInto(int vacant);
  int firstVacantNumber() const;
  void compressLogsFactory();
  void compressRunFactory(const PackingDirectory& directory);
  void makeRoom() const;
  bool packMovedFiles(const PackingDirectory& directory);
  void moveArchivesUp(bool resumed);

  const std::string logFilePath;
  const uint64_t maxFiles;
};

#endif  // QUILCAT_LOGFILE_ROTATED_FILES_H_
