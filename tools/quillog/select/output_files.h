#ifndef QUILCAT_TOOLS_QUILLOG_SELECT_OUTPUT_FILES_H_
#define QUILCAT_TOOLS_QUILLOG_SELECT_OUTPUT_FILES_H_

#include <string>
#include <vector>

#include "quillog/select/log_file.h"

/// One output and its files, oldest first.
struct Output {
  std::string path;  ///< "/data/log/t/cat"; what was named, for single files
  std::vector<LogFile> files;
  bool isFiles = false;  ///< made of files that were named one by one
  bool isGuess = false;  ///< a text file of any name: it may be a live file that has not been rotated yet
};

/// Which files make an output. Only reads directories, which makes a daemon there write what it holds.
namespace OutputFiles {

/// Lists the output's files afresh, in the daemon's own order of age. Links are none of its files. False: its directory
/// cannot be listed (errno), and the output is as it was.
bool List(Output& output);

/// Opens the files that a rotation would rename. Lists them afresh when a rotation came between, so that what is read
/// is what was listed: every line once.
void Open(Output& output);
/// Lets go the descriptors, once the output has been read.
void LetGo(Output& output);

/// Lists the outputs that have files in the directory at `path`, sorted by name. False: it cannot be read (errno).
bool Find(const std::string& path, std::vector<Output>* outputs);

/// The file of that path, by its name and its first bytes.
LogFile Single(const std::string& path);

}  // namespace OutputFiles

#endif  // QUILCAT_TOOLS_QUILLOG_SELECT_OUTPUT_FILES_H_
