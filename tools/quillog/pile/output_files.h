#ifndef QUILCAT_TOOLS_QUILLOG_PILE_OUTPUT_FILES_H_
#define QUILCAT_TOOLS_QUILLOG_PILE_OUTPUT_FILES_H_

#include <memory>
#include <string>
#include <vector>

#include "quillog/pile/log_file.h"

class OutputFolder;

/// One output and its files, oldest first.
struct Output {
  std::string path;    ///< as shown: "/data/log/t/cat", "bug.zip/FS/data/log/t/cat"; what was named, for single files
  std::string device;  ///< the pile's name without directory and suffix, "bug"; empty: this machine's own logs
  std::string name;    ///< inside the pile, from below its "data/log/" if it has one: "t/cat"
  std::vector<LogFile> files;
  std::shared_ptr<OutputFolder> folder;  ///< null for single files
  bool isFiles = false;                  ///< made of files that were named one by one
  bool isGuess = false;  ///< a text file of any name: it may be a live file that has not been rotated yet

  /// False: it comes from a container or is made of single files, and there is nothing to follow but the last of these.
  bool IsLive() const;
};

/// Which files make an output. Only reads directories, which makes a daemon there write what it holds.
namespace OutputFiles {

/// Lists the output's files afresh, in the daemon's own order of age. Links are none of its files. False: its directory
/// cannot be listed (errno), and the output is as it was.
bool List(Output& output);

/// Opens the files that a rotation would rename and then delete: at most a dozen. Lists them afresh when a rotation
/// came between, so that what is read is what was listed: every line once. False: a directory or a file that is there
/// cannot be opened (errno, EMFILE perhaps), and what can be is held.
bool Hold(Output& output);
/// Lets go what is held, once the output has been read.
void LetGo(Output& output);

}  // namespace OutputFiles

#endif  // QUILCAT_TOOLS_QUILLOG_PILE_OUTPUT_FILES_H_
