#ifndef QUILCAT_LOGFILE_PACKING_DIRECTORY_H_
#define QUILCAT_LOGFILE_PACKING_DIRECTORY_H_

#include <string>

#include "logfile/file_names.h"

/// The directory O_tmp in which five rotated files of an output O become an archive: B.1 to B.5, with B the base name
/// of O, unfinished.tar.gz while it is written, packed.tar.gz once it is whole.
///
/// Only a directory of the process's own user that nobody else may write to will do, since what is packed here is given
/// away: another one in its place is moved out of the way, to O_tmp.moved. The paths that the object gives lead into
/// the directory that was examined, through its descriptor, whatever the name O_tmp stands for meanwhile. Not
/// thread-safe.
class PackingDirectory {
 public:
  static constexpr int kFiles = FileNames::kFilesPerArchive;

  /// Opens the directory of the output at `livePath` if it is there.
  explicit PackingDirectory(const std::string& livePath);
  ~PackingDirectory();
  PackingDirectory(const PackingDirectory&) = delete;
  PackingDirectory& operator=(const PackingDirectory&) = delete;

  /// Makes the directory. A failure, one that is there already included, is reported on standard error.
  void Make();

  bool isOpen() const { return fd >= 0; }

  /// Paths in the open directory: of B.`number`, of the archive while it is written, and when it is whole.
  std::string file(int number) const;
  std::string unfinished() const { return at("unfinished.tar.gz"); }
  std::string packed() const { return at("packed.tar.gz"); }

  /// True when one of the five files is there.
  bool holdsFiles() const;

  /// Deletes the five files; each failure, a missing file included, is reported on standard error.
  void DeleteFiles() const;

  /// Removes the directory, which stays open. A failure is reported on standard error. What does not let itself be
  /// deleted, as a directory in the place of a file, is moved out of the way with it.
  void Remove() const;

 private:
  void Open();
  void MoveAway() const;
  std::string at(const std::string& name) const;

  const std::string path;
  const std::string baseName;
  int fd = -1;
};

#endif  // QUILCAT_LOGFILE_PACKING_DIRECTORY_H_
