#ifndef QUILCAT_LOGFILE_FILE_STEPS_H_
#define QUILCAT_LOGFILE_FILE_STEPS_H_

#include <string>

// Single steps on the files of an output that report their failure on standard error. Any thread may call them.

/// True when something stands at `path`, a link whose target is gone not counted.
bool fileExists(const std::string& path);

/// Deletes the file at `path`.
void unlinkFile(const std::string& path);

/// Renames; a failure other than a missing source is reported as `message`.
void renameIfThere(const std::string& from, const std::string& to, const char* message);

/// Removes what stands at `path` if it is a symbolic link, whether or not its target exists. 0 on success, also when
/// nothing stands there, 1 on failure.
int releaseSymlink(const std::string& path);

#endif  // QUILCAT_LOGFILE_FILE_STEPS_H_
