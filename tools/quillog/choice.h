#ifndef QUILCAT_TOOLS_QUILLOG_CHOICE_H_
#define QUILCAT_TOOLS_QUILLOG_CHOICE_H_

#include "quillog/options.h"
#include "quillog/select/log_reader.h"

/// Turns what is asked for into the part of an output that is wanted. False: wrong usage, which is named on standard
/// error.
namespace Choice {

/// True with --last, --since or --until.
bool IsOfTime(const Options& options);

/// Sets these three. `newest` is the newest time of all outputs that are shown as one log.
bool SetRange(const Options& options, Time newest, LogClock& clock, LogReader::Wanted* wanted);

/// The places between which a boot's lines are.
bool SetBoot(int number, LogClock& clock, LogReader::Wanted* wanted);

}  // namespace Choice

#endif  // QUILCAT_TOOLS_QUILLOG_CHOICE_H_
