#ifndef QUILCAT_TESTS_DEVICE_H_
#define QUILCAT_TESTS_DEVICE_H_

#include <sys/resource.h>
#include <sys/types.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

/// What tests need of the test device that they run in: files, decoded logs, and the daemon as a process.
namespace Device {

void WriteFile(const std::string& path, const std::string& text);  ///< makes its directory too
std::string ReadFile(const std::string& path);
void SetProperty(const std::string& name, const std::string& value);
/// Names in `directory` but "." and "..", sorted.
std::vector<std::string> List(const std::string& directory);
/// Full paths in `directory` whose name holds ".I", oldest first as long as indexes do not wrap.
std::vector<std::string> IndexedFiles(const std::string& directory);
std::vector<std::string> Lines(const std::string& text);
/// "root:system 664" for a path as it is, not for what a link points to.
std::string OwnerAndMode(const std::string& path);
/// How often a test at random moments is repeated: `usual` times, times what scripts/soak asks for.
int Rounds(int usual);
/// True in the builds under sanitizers, which need a real /proc, descriptors and memory of their own.
bool Sanitized();
bool WaitFor(const std::function<bool()>& condition, double seconds = 10);
/// Mounts an empty tmpfs of `kilobytes` at `directory`.
void MountSmallDisk(const std::string& directory, int kilobytes);
/// What a call writes to standard error.
std::string StandardErrorOf(const std::function<void()>& call);

/// The text of a mapped log file: its complete gzip members, up to the zero bytes that an open file ends in, or up to a
/// member that a kill broke off.
struct Decoded {
  std::string text;
  int members = 0;
  bool sound = false;   ///< members, then nothing but zeros
  size_t zeroTail = 0;  ///< bytes
};
Decoded Decode(const std::string& path);
/// The text of several files in that order; a file that is not sound fails the test.
std::string DecodeAll(const std::vector<std::string>& paths);

/// The text of factory mode's archives, rotated files and live file at `output`, oldest first.
std::string FactoryText(const std::string& output);

/// The daemon as a process; killed at the end of the scope.
class Daemon {
 public:
  explicit Daemon(std::vector<std::string> arguments, std::vector<std::string> environment = {},
                  const char* program = QUILCAT_DAEMON, const rlimit* descriptors = nullptr);
  ~Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  pid_t pid() const { return process; }
  void Signal(int number) const;
  /// Waits for its end: the exit status, or 1000 and the number of the signal that ended it; -1 when it runs on.
  int Wait(double seconds = 20);
  /// Sends SIGUSR2 when its collectors run, and waits.
  int Close();
  /// True when the handler of SIGUSR2 is installed.
  bool IsClosable() const;
  /// Waits for its title, which it takes when all its collectors stand.
  bool WaitUntilRunning();
  std::string Title() const;
  std::string Errors() const { return ReadFile(errorFile); }

 private:
  pid_t process = -1;
  std::string errorFile;
};

/// Writes into /proc/kmsg, the fifo of the test device, as the kernel would: whole lines.
class KernelLog {
 public:
  KernelLog();
  ~KernelLog();
  /// False when the node's reader is slow and `text` did not fit any more.
  bool Write(const std::string& text) const;
  /// Takes what nobody has read.
  std::string ReadAll() const;
  /// True when the node's reader has taken everything.
  bool IsDrained() const;
  /// Line i of the test's numbered kernel log, with a line feed.
  static std::string Line(int i);
  /// The numbers of such lines in decoded text; -1 for a line that is none.
  static std::vector<int> Numbers(const std::string& text);

 private:
  int fd;
};

/// Numbered lines in the kernel log as fast as they are read.
class KernelLoad {
 public:
  KernelLoad()
      : feeder([this] {
          for (int i = 0; !done; i += kernel.Write(KernelLog::Line(i)) ? 1 : 0) {
          }
        }) {}
  ~KernelLoad() { Unread(); }
  /// Ends the load and returns what nobody has read.
  std::string Unread() {
    done = true;
    if (feeder.joinable()) {
      feeder.join();
    }
    return kernel.ReadAll();
  }

 private:
  const KernelLog kernel;
  std::atomic<bool> done{false};
  std::thread feeder;
};

/// A service "test" in the configuration file with one streaming group at /data/log/t/cat.
void ConfigureStream(const std::string& writeMode, int rotateKilobytes, int files);

}  // namespace Device

#endif  // QUILCAT_TESTS_DEVICE_H_
