#ifndef QUILCAT_LOGFILE_INDEXED_FILES_H_
#define QUILCAT_LOGFILE_INDEXED_FILES_H_

#include <stdint.h>

#include <string>
#include <vector>

#include "logfile/file_names.h"

/// The indexed files of one output, "<output>.I<index>.<time stamp>.gz": which there are, how old they are, what the
/// next one is called, and which names beside them are the output's own as well.
///
/// A value: it knows a path and a list of names, and neither opens nor changes a file. The list is in order of age,
/// oldest first. Not thread-safe.
class IndexedFiles {
 public:
  using PathIterator = std::vector<std::string>::iterator;

  /// Files of the output at `path`, which need not exist. The list is empty.
  explicit IndexedFiles(std::string path) : outputFilePath(std::move(path)) {}

  /// Lists the output's directory afresh. False: the directory cannot be read, which is reported on standard error, and
  /// the list is empty.
  bool formFileVectors();

  /// Full paths, oldest first.
  const std::vector<std::string>& paths() const { return logFileVec; }

  /// The index of the next file, 0 to 999. Orders the list.
  int32_t nextIndex() { return get_newLogFileIndex(logFileVec); }

  /// The path of a file of that index that is made now: 8 -> "/d/log.I008.20240131-235959.gz". Empty when there is no
  /// memory.
  std::string pathOf(int32_t index) const;

  /// Appends the path of a new file to the list.
  void add(const std::string& path) { logFileVec.push_back(path); }

  /// Takes the newest name off the list, which is not empty.
  void dropNewest() { logFileVec.pop_back(); }

  /// Takes the oldest names off the list until `count` are left, and returns them.
  std::vector<std::string> takeSurplus(uint64_t count);

  /// Regular files in the directory that look like compressed files of this output but have no indexed name: full paths
  /// that hold the output's base name and ".gz". Old-style names are left out.
  std::vector<std::string> otherCompressedFiles() const;

  /// The ten names that factory mode gives to this output's files: O.0, O-0.tar.gz, O.1, ...
  std::vector<std::string> oldStyleNames() const { return FileNames::oldStyle(outputFilePath); }

  // The steps.

  /// The local time of now as 20240131-235959; 19000100-000000 when it is not to be had. Heap text, freed by the
  /// caller; null when there is no memory.
  static char* getTimeStamp();
  /// The `count` bytes at `position` of a name of `expectedLength` bytes; empty for a name of another length.
  static std::string get_interger_from_iterator(PathIterator name, uint32_t expectedLength, uint32_t position,
                                                uint32_t count);
  static bool sort_by_early_time(const std::string& first, const std::string& second);
  /// Makes `name` the last entry: what stands behind it moves to the front. A name that is missing changes nothing.
  static void rotate_vec(std::vector<std::string>& paths, const std::string& name);
  /// The first entry with the latest time stamp; empty when no entry has one.
  std::string get_file_by_max_timestamp(std::vector<std::string> paths) const;
  /// Brings paths that are sorted by name into order of age. Names with a negative index are dropped.
  void adjustFileVecOrder(std::vector<std::string>& paths) const;
  /// Orders `paths`, and returns the index behind that of the newest, 0 to 999.
  int32_t get_newLogFileIndex(std::vector<std::string>& paths) const;

 private:
  enum class Scan { kIndexed, kOthers };

  bool processMmapFileVec(Scan scan, std::vector<std::string>* found) const;
  std::string suffixField(PathIterator name, uint32_t offset, uint32_t count) const;
  std::string indexField(PathIterator name) const {
    return suffixField(name, FileNames::kIndexOffset, FileNames::kIndexLength);
  }

  std::string outputFilePath;
  std::vector<std::string> logFileVec;
};

#endif  // QUILCAT_LOGFILE_INDEXED_FILES_H_
