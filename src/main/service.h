#ifndef QUILCAT_MAIN_SERVICE_H_
#define QUILCAT_MAIN_SERVICE_H_

#include "config/quilcommon.h"

/// The running service: its record, its collectors, and the signals that close it, SIGUSR2 and SIGTERM. One per
/// process; main thread only, except for closequilcats().
///
/// From start() on a close signal closes the service whatever it is doing: the close is reported, the collectors are
/// stopped, the text they hold is written to their files, and the process exits with the signal's number as status.
/// That takes five seconds at most; what is stuck is abandoned.
namespace Service {

/// Takes `info`, borrowed and filled, as the service, installs closequilcats(), and starts a collector for each of its
/// groups. A group whose collector cannot be made or started is reported and skipped.
void start(QuilCommon::QuilcatInfo_t* info);

/// Calls `step`, which may block, on a thread of its own, and returns when it has ended. Without memory for a thread it
/// is called on this one, and a close waits for its end. After start().
void runClosable(void (*step)());

/// Waits until every collector has ended, then destroys them and releases the record, and keeps waiting for a close
/// signal.
[[noreturn]] void waitForClose();

}  // namespace Service

/// Handler of the close signals: notes the first and wakes the main thread, which does the closing. Async-signal-safe.
void closequilcats(int signalNumber);

#endif  // QUILCAT_MAIN_SERVICE_H_
