#ifndef QUILCAT_LOGFILE_CHANGE_OWNER_H_
#define QUILCAT_LOGFILE_CHANGE_OWNER_H_

/// Gives `path` to root:system with the system's chown command, found through the search path, and waits for it.
/// Nothing is given away when `path` no longer stands for the file that descriptor `file` is open on, so that nobody
/// can put another file in its place: the command is not run then. That, and a command that cannot be started, is
/// reported on standard error as "<label>[<path>] err". Any thread may call it.
///
/// Between the look and the command's own one lies its start, and the command follows links. So nobody else may write
/// to the directory that `path` stands in while the command runs, if it is the daemon's own: 0775 is 0755 for so long.
/// One with a sticky bit stays as it is, since many share it. A process that dies meanwhile leaves it so; the next
/// set-up mends the directory of an output, the next boot the one above it.
void changeOwner(const char* path, const char* label, int file);

#endif  // QUILCAT_LOGFILE_CHANGE_OWNER_H_
