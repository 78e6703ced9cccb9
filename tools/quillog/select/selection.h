#ifndef QUILCAT_TOOLS_QUILLOG_SELECT_SELECTION_H_
#define QUILCAT_TOOLS_QUILLOG_SELECT_SELECTION_H_

#include <string>
#include <vector>

#include "quillog/select/output_files.h"

/// The outputs that paths on the command line mean: an output's path, which need not exist itself, a directory
/// (where it has none itself, the directories in it), or single files, which together make one output.
class Selection {
 public:
  /// Without paths, the directories in /data/log. False: there is nothing at one of them, which is named on standard
  /// error.
  bool Add(const std::vector<std::string>& paths);

  std::vector<Output>& outputs() { return found; }
  /// True when a directory gave more than one output.
  bool IsAmbiguous() const { return ambiguous; }
  /// True when a directory in a directory could not be listed, which was named.
  bool HasUnreadable() const { return unreadable; }

 private:
  static constexpr int kTries = 5;  ///< at a path where nothing is

  bool AddPath(const std::string& path, int tries = kTries);
  bool AddDirectory(const std::string& path);
  bool AddFound(const std::string& path, const std::vector<Output>& outputs);
  std::vector<Output> InDirectories(const std::string& path);
  void DropRepeated();
  static void OrderByAge(std::vector<LogFile>& files);

  std::vector<Output> found;
  std::vector<LogFile> singles;
  bool ambiguous = false;
  bool unreadable = false;
};

#endif  // QUILCAT_TOOLS_QUILLOG_SELECT_SELECTION_H_
