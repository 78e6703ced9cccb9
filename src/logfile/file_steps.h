#ifndef QUILCAT_LOGFILE_FILE_STEPS_H_
#define QUILCAT_LOGFILE_FILE_STEPS_H_

#include <string>

// Single steps on the files of an output that report their failure on standard error. Any thread may call them.

/// True when something stands at `name` in `directory`, a descriptor; a link whose target is gone not counted.
bool fileExists(int directory, const std::string& name);

/// Deletes the file at `path`.
void unlinkFile(const std::string& path);

/// Renames `from` in the directory `source` to `to` in the directory `target`, both descriptors. False: nothing was
/// renamed; a failure other than a missing source is reported as `message`.
bool renameIfThere(int source, const std::string& from, int target, const std::string& to, const char* message);

/// Removes what stands at `path` if it is a symbolic link, whether or not its target exists. 0 on success, also when
/// there is nothing to be found, 1 on failure.
int releaseSymlink(const std::string& path);

#endif  // QUILCAT_LOGFILE_FILE_STEPS_H_
