#ifndef QUILCAT_LOGFILE_CHANGE_OWNER_H_
#define QUILCAT_LOGFILE_CHANGE_OWNER_H_

/// Gives `path` to root:system with the system's chown command, found through the search path, and waits for it.
/// Nothing is given away when `path` no longer stands for the file that descriptor `file` is open on, so that nobody
/// can put another file in its place: the command is not run then. That, and a command that cannot be started, is
/// reported on standard error as "<label>[<path>] err". Any thread may call it.
void changeOwner(const char* path, const char* label, int file);

#endif  // QUILCAT_LOGFILE_CHANGE_OWNER_H_
