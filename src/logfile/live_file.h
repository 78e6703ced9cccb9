#ifndef QUILCAT_LOGFILE_LIVE_FILE_H_
#define QUILCAT_LOGFILE_LIVE_FILE_H_

/// Opens the plain file at `path` for appending, made with mode 0640 when it is missing, and cuts the zero bytes that a
/// power cut may have left at its end. The descriptor, owned by the caller, or -1.
///
/// Whoever may write in the directory can put something else there. A file that has other names as well is not written
/// but loses this name, and so does what is neither a file nor a directory; a new file takes the place. No link is
/// followed, and nothing is waited for.
int openLiveFile(const char* path);

#endif  // QUILCAT_LOGFILE_LIVE_FILE_H_
