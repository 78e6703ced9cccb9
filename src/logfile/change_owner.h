#ifndef QUILCAT_LOGFILE_CHANGE_OWNER_H_
#define QUILCAT_LOGFILE_CHANGE_OWNER_H_

/// Gives the file or directory that descriptor `file` is open on to root:system with the system's chown command, found
/// through the search path, and waits for it. The command gets the descriptor and its path below /proc/self/fd:
/// whatever others put at `path` meanwhile, it is the open file that is given away. `path` is what a message names: a
/// command that cannot be started is reported on standard error as "<label>[<path>] err". Any thread may call it.
void changeOwner(const char* path, const char* label, int file);

#endif  // QUILCAT_LOGFILE_CHANGE_OWNER_H_
