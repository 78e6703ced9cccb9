#ifndef QUILCAT_LOGFILE_CHANGE_OWNER_H_
#define QUILCAT_LOGFILE_CHANGE_OWNER_H_

/// Gives `path` to root:system with the system's chown command, found through the search path, and waits for it.
/// Nothing is given away when `path` no longer stands for the file that descriptor `file` is open on, so that nobody
/// can put another file in its place: the command is not run then. That, and a command that cannot be started, is
/// reported on standard error as "<label>[<path>] err". Any thread may call it.
///
/// Between the look and the command's own one lies its start, and the command follows links: `path` has to stand in a
/// directory that nobody else may change meanwhile.
void changeOwner(const char* path, const char* label, int file);

/// The same for a file in an output's directory, which group system may write to: it may not while the command runs,
/// 0775 is 0755 for so long. A process that dies meanwhile leaves it so, and the next set-up mends it.
void changeFileOwner(const char* path, const char* label, int file);

#endif  // QUILCAT_LOGFILE_CHANGE_OWNER_H_
