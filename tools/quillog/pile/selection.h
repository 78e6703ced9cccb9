#ifndef QUILCAT_TOOLS_QUILLOG_PILE_SELECTION_H_
#define QUILCAT_TOOLS_QUILLOG_PILE_SELECTION_H_

#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "quillog/pile/container.h"
#include "quillog/pile/output_files.h"
#include "quillog/pile/output_folder.h"
#include "quillog/pile/pile_damage.h"

/// The outputs that paths on the command line mean: an output's path, which need not exist itself; a directory,
/// searched to any depth; a container (tar, tar.gz, zip), whose logs are kept in a temporary file, or something in it
/// ("bug.zip/t/cat"); "-", standard input; or single files, which together make one output.
///
/// Keeps at most two descriptors: that file, and standard input.
class Selection {
 public:
  /// Without paths, /data/log. False: there is nothing at one of them, which is named on standard error.
  bool Add(const std::vector<std::string>& paths);

  std::vector<Output>& outputs() { return found; }
  /// True when a directory or container gave more than one output.
  bool IsAmbiguous() const { return ambiguous; }
  /// In the order in which they were found.
  const std::vector<PileDamage>& damages() const { return pileDamages; }

 private:
  static constexpr int kTries = 5;  ///< at a path where nothing is

  bool AddPath(const std::string& path, int tries = kTries);
  bool AddFile(const std::string& path);
  bool AddDirectory(const std::string& path);
  bool AddContainer(const std::string& path, const std::string& inside);
  bool AddStandardInput();
  bool AddInContainer(const std::string& path);
  bool AddFolder(const std::shared_ptr<const Folder>& folder, const std::string& path, const std::string& wanted);
  void AddSingle(const std::string& path);
  std::shared_ptr<OutputFolder> FolderAt(const std::string& directory);
  void DropRepeated();
  void OrderByAge(std::vector<LogFile>& files);

  std::vector<Output> found;
  std::vector<LogFile> singles;
  std::vector<PileDamage> pileDamages;
  Containers containers{pileDamages};
  std::map<std::string, std::shared_ptr<const Folder>> opened;       ///< containers by path
  std::map<std::string, std::shared_ptr<OutputFolder>> directories;  ///< of files that were named
  bool ambiguous = false;
};

#endif  // QUILCAT_TOOLS_QUILLOG_PILE_SELECTION_H_
