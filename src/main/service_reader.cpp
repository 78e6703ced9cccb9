#include "main/service_reader.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "config/quil_config.h"
#include "config/record_transfer.h"
#include "thread/interruptible.h"

using QuilCommon::QuilcatInfo_t;

namespace {

/// The child. Sends nothing when there is no valid service.
[[noreturn]] void ReadAndSend(int fd, const char* name, QuilcatInfo_t* info) {
  // A child stuck in reading the configuration must not outlive a daemon that was ended meanwhile.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  FILE* to = fdopen(fd, "w");
  const bool sent = to != nullptr && QuilConfig::parse_config_file(name, info) == 0 && RecordTransfer::send(to, info);
  _exit(sent ? 0 : 1);
}

int Receive(int fd, QuilcatInfo_t* info) {
  FILE* from = fdopen(fd, "r");
  if (from == nullptr) {
    close(fd);
    return 1;
  }
  const bool received = RecordTransfer::receive(from, info);
  fclose(from);
  return received ? 0 : 1;
}

}  // namespace

int readService(const char* name, QuilcatInfo_t* info) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return QuilConfig::parse_config_file(name, info);
  }
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    ReadAndSend(ends[1], name, info);
  }
  close(ends[1]);
  if (child < 0) {
    close(ends[0]);
    return QuilConfig::parse_config_file(name, info);
  }
  const int result = Receive(ends[0], info);
  waitForChild(child);
  return result;
}
