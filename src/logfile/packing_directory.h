#ifndef QUILCAT_LOGFILE_PACKING_DIRECTORY_H_
#define QUILCAT_LOGFILE_PACKING_DIRECTORY_H_

#include <string>

#include "logfile/file_names.h"
#include "platform/open_file.h"

/// The directory O_tmp in which five rotated files of an output O become an archive: B.1 to B.5, with B the base name
/// of O, unfinished.tar.gz while it is written, packed.tar.gz once it is whole.
///
/// Only a directory of the process's own user that nobody else may write to will do, since what is packed here is given
/// away: another one in its place is moved out of the way, to O_tmp.moved.0 and on. All steps are taken in the
/// directory that was examined, through its descriptor, whatever the name O_tmp stands for meanwhile. Not thread-safe.
/// Failures are reported on standard error.
class PackingDirectory {
 public:
  static constexpr int kFiles = FileNames::kFilesPerArchive;

  /// Opens the directory if it is there. `parent` is a descriptor of the log directory, borrowed.
  PackingDirectory(int parent, const std::string& livePath);

  /// Makes and opens the directory; one that is there serves as well, but is reported.
  void Make();

  bool isOpen() const { return directory.fd >= 0; }

  /// Moves the file B.`number` of the log directory here.
  void MoveIn(int number) const;
  /// Takes the files that a process did not come to, which died while it took five: those below the lowest number here.
  void MoveInRest() const;

  /// True when one of the files is there that can be packed.
  bool holdsFiles() const;
  /// True when there is a whole archive. The files are in it then.
  bool isPacked() const;

  /// Packs the files, but not what would be given away by it: leaves a whole archive, or false.
  bool Pack() const;
  /// Deletes the files that can be packed. A missing one is a failure.
  void DeleteFiles() const;
  /// Deletes the whole archive.
  void DeleteArchive() const;
  /// Moves the whole archive to `name` in the log directory.
  void Release(const std::string& name) const;
  /// Removes and closes the directory. With something in it, which cannot be packed and so was not deleted, it is moved
  /// out of the way instead.
  void Remove();

 private:
  void Open();
  void MoveAway() const;
  std::string file(int number) const { return FileNames::rotated(base, number); }
  const char* objection(int number) const;

  const int parent;
  const std::string path;  ///< O_tmp, for messages
  const std::string base;
  const std::string name;
  OpenFile directory{-1};
};

#endif  // QUILCAT_LOGFILE_PACKING_DIRECTORY_H_
