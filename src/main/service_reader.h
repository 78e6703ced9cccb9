#ifndef QUILCAT_MAIN_SERVICE_READER_H_
#define QUILCAT_MAIN_SERVICE_READER_H_

#include "config/quilcommon.h"

/// QuilConfig::parse_config_file() in a child process: the XML parser's libraries, of which some C libraries never
/// unload all, and what it leaves on the heap then do not stay with a process that runs for years. Without a child to
/// be had the service is read in the calling process. Before there are any other threads.
///
/// Returns 0 when the zero-filled `info` then holds a valid service; otherwise 1, which a parser that crashes gives
/// too.
int readService(const char* name, QuilCommon::QuilcatInfo_t* info);

#endif  // QUILCAT_MAIN_SERVICE_READER_H_
