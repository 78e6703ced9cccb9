#ifndef QUILCAT_MAIN_SERVICE_READER_H_
#define QUILCAT_MAIN_SERVICE_READER_H_

#include "config/quilcommon.h"

/// QuilConfig::parse_config_file() in a child process, so that the XML parser's libraries, which some C libraries never
/// fully unload, and its remains on the heap do not stay in a process that runs for years. Where no child can be
/// created the service is read in the calling process. Call it before there are other threads.
///
/// Returns 0 when the zero-filled `info` then holds a valid service; otherwise 1, also when the parser crashes.
int readService(const char* name, QuilCommon::QuilcatInfo_t* info);

#endif  // QUILCAT_MAIN_SERVICE_READER_H_
