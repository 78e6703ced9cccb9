#ifndef QUILCAT_LOGFILE_EMPTY_FILES_H_
#define QUILCAT_LOGFILE_EMPTY_FILES_H_

#include "logfile/indexed_files.h"

/// Deletes the newest files of the list, and takes them off it, as long as they hold nothing but zeros: what starts
/// leave that die before any text. Ends at a file that a living writer has open, and at one with text: a gap between
/// indexes would have their order of age depend on the clock. A failure to delete is reported on standard error.
void removeEmptyFiles(IndexedFiles* files);

#endif  // QUILCAT_LOGFILE_EMPTY_FILES_H_
