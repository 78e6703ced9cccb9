#ifndef QUILCAT_TOOLS_QUILLOG_PILE_SELECTION_H_
#define QUILCAT_TOOLS_QUILLOG_PILE_SELECTION_H_

#include <string>
#include <vector>

#include "quillog/pile/output_files.h"

/// What is wrong with a pile: something in it was not looked at or not kept.
struct PileDamage {
  std::string path;
  std::string what;
};

/// The outputs that paths on the command line mean: an output's path, which need not exist itself; a directory, searched
/// to any depth; a container (tar, tar.gz, zip), whose logs are kept in a temporary file, or one of its outputs
/// ("bug.zip/t/cat"); "-", standard input; or single files, which together make one output.
class Selection {
 public:
  /// Without paths, /data/log. False: there is nothing at one of them, which is named on standard error.
  bool Add(const std::vector<std::string>& paths);

  std::vector<Output>& outputs() { return found; }
  /// True when a directory or container gave more than one output.
  bool IsAmbiguous() const { return ambiguous; }
  /// In the order in which they were found. Names in them are as hostile as the pile.
  const std::vector<PileDamage>& damages() const { return pileDamages; }

 private:
  std::vector<Output> found;
  std::vector<PileDamage> pileDamages;
  bool ambiguous = false;
};

#endif  // QUILCAT_TOOLS_QUILLOG_PILE_SELECTION_H_
