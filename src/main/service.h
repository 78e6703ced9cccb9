#ifndef QUILCAT_MAIN_SERVICE_H_
#define QUILCAT_MAIN_SERVICE_H_

#include "config/quilcommon.h"

/// The running service: its record, its collectors, and the signal that closes it. One a process; main thread only,
/// except for closequilcats().
namespace Service {

/// Takes `info`, borrowed and filled, as the service, and starts a collector for each of its groups. A group whose
/// collector cannot be made or started is reported and skipped. SIGUSR2 waits from here on until its handler is
/// installed.
void start(QuilCommon::QuilcatInfo_t* info);

/// Installs closequilcats() for SIGUSR2, which the main thread alone takes.
void installCloseHandler();

/// Waits until every collector has ended, then destroys them and releases the record, and goes on waiting for the close
/// signal. When that comes: reports it, stops the collectors, writes what they hold to their files, and exits with the
/// signal's number as status.
[[noreturn]] void waitForClose();

}  // namespace Service

/// Handler of SIGUSR2: notes the signal and wakes the main thread, which does the closing. Async-signal-safe.
void closequilcats(int signalNumber);

#endif  // QUILCAT_MAIN_SERVICE_H_
