// quilcat: keeps the text of kernel and battery nodes in rotated, compressed log files. One process serves one service.

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <initializer_list>
#include <new>

#include "config/quil_config.h"
#include "main/process_title.h"
#include "main/service.h"
#include "main/service_reader.h"
#include "safestr/safestr.h"

namespace {

constexpr size_t kNameSize = 256;
constexpr size_t kPidTextSize = 128;
constexpr mode_t kFileCreationMask = 022;
constexpr int kLittleCpus = 4;

void show_help(const char* program) {
  fprintf(stderr, "Usage: %s [options] \n", program);
  fprintf(stderr, "options include:\n  -b <quilcat>      Trigger a pre-defined quilcat service <quilcat>\n");
}

/// Where a list of file names finds no memory, wait for some: ending a service that runs for years helps nobody.
void WaitForMemory() {
  usleep(100'000);
}

/// Opens standard descriptors that whoever started the daemon left closed: a log file would get their number, and then
/// the messages.
void OpenStandardStreams() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(fd, F_GETFD) == -1) {
      open("/dev/null", O_RDWR);  // returns the lowest free number: this one
    }
  }
}

/// Unblocks the signals that end the daemon and its threads: whoever started it may have blocked them.
void UnblockSignals() {
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

/// Lets a write fail instead of ending the process when the reader of the messages has gone away or a file has reached
/// the size limit.
void IgnoreSignalsOfFailedWrites() {
  signal(SIGPIPE, SIG_IGN);
  signal(SIGXFSZ, SIG_IGN);
}

/// Reads the service's name from the arguments into `name` of kNameSize bytes. Ends the process on a wrong option.
void ReadOptions(int argc, char** argv, char* name) {
  int option;
  while ((option = getopt(argc, argv, "b:")) != -1) {
    if (option != 'b') {
      fprintf(stderr, "Main:Unrecognized Option\n");
      show_help(argv[0]);
      exit(-1);
    }
    if (strncpy_s(name, kNameSize, optarg, kNameSize - 1) != 0) {
      fprintf(stderr, "Main:quilcatName strncpy_sp error!");
      exit(-1);
    }
  }
}

/// Binds the calling thread, and so every thread that it creates later, to the little CPUs.
void BindToLittleCpus() {
  cpu_set_t cpus;
  CPU_ZERO(&cpus);
  for (int cpu = 0; cpu < kLittleCpus; ++cpu) {
    CPU_SET(cpu, &cpus);
  }
  sched_setaffinity(0, sizeof cpus, &cpus);
}

/// Tells the reboot watchdog, where there is one, which process to look after.
void RegisterWithWatchdog() {
  char text[kPidTextSize] = {};
  const int length = sprintf_s(text, sizeof text, "%d", getpid());
  const int fd = open("/proc/reboot_watchdog", O_WRONLY | O_CLOEXEC);
  if (fd < 0) {
    return;
  }
  if (write(fd, text, static_cast<size_t>(length)) != length) {
    fprintf(stderr, "Main:quilcat write to REBOOT_WATCHDOG failed!\n");
  }
  close(fd);
}

}  // namespace

int main(int argc, char** argv) {
  OpenStandardStreams();
  UnblockSignals();
  IgnoreSignalsOfFailedWrites();
  std::set_new_handler(WaitForMemory);
  char quilcatName[kNameSize] = {};
  if (getuid() == 0) {
    umask(kFileCreationMask);
  }
  if (argc == 2 && strcmp(argv[1], "--version") == 0) {
    puts("quilcat " QUILCAT_VERSION);
    exit(0);
  }
  if (argc != 3) {
    show_help(argv[0]);
    exit(0);
  }
  ProcessTitle title(argv);
  ReadOptions(argc, argv, quilcatName);

  QuilCommon::QuilcatInfo_t info = {};
  if (readService(quilcatName, &info) != 0) {
    fprintf(stderr, "Main:parse_config_file failed, exit!!\n");
    QuilConfig::free_config_file(&info);
    while (pause() == -1 && errno == EINTR) {
    }
    return 0;
  }
  if (info.cpu_set == QuilCommon::CPU_SET_LITTLE) {
    BindToLittleCpus();
  }
  Service::start(&info);
  if (info.name != nullptr) {
    title.Set(info.name);
  }
  Service::runClosable(RegisterWithWatchdog);
  Service::waitForClose();
}
