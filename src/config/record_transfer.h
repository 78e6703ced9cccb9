#ifndef QUILCAT_CONFIG_RECORD_TRANSFER_H_
#define QUILCAT_CONFIG_RECORD_TRANSFER_H_

#include <stdio.h>

#include "config/quilcommon.h"

/// Carries the description of a service from one process to another that runs the same program: one reads it with the
/// XML parser, the other never has the parser in its memory. The format of the bytes is private to them.
namespace RecordTransfer {

/// Writes `info` with all that it owns. False: not all of it could be written.
bool send(FILE* to, QuilCommon::QuilcatInfo_t* info);

/// Fills the zero-filled `info` with what send() wrote at the other end, in heap blocks of its own. False: it came to
/// an end too early, or there was no memory; `info` is all zeros then.
bool receive(FILE* from, QuilCommon::QuilcatInfo_t* info);

}  // namespace RecordTransfer

#endif  // QUILCAT_CONFIG_RECORD_TRANSFER_H_
