#ifndef QUILCAT_TESTS_DEVICE_H_
#define QUILCAT_TESTS_DEVICE_H_

#include <signal.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <future>
#include <string>
#include <vector>

/// What tests need of the test device that they run in: files, decoded logs, and the daemon as a process.
namespace Device {

void WriteFile(const std::string& path, const std::string& text);  ///< makes its directory too
std::string ReadFile(const std::string& path);
/// The names in `directory` that contain `part`, sorted, each with `prefix` before it.
std::vector<std::string> List(const std::string& directory, const std::string& part = "",
                              const std::string& prefix = "");
inline void SetProperty(const std::string& name, const std::string& value) {
  WriteFile("/dev/__properties__/" + name, value);
}
/// The indexed files in `directory`: full paths, oldest first as long as indexes do not wrap.
inline std::vector<std::string> IndexedPaths(const std::string& directory) {
  return List(directory, ".I", directory + "/");
}
std::vector<std::string> Lines(const std::string& text);
/// What a shell command, which has to succeed, writes to standard output.
std::string Shell(const std::string& command);
/// "root:system 664" for the path itself, not for what a link points to.
std::string OwnerAndMode(const std::string& path);
/// How often a test at random moments is repeated: `usual` times, times QUILCAT_SOAK.
int Rounds(int usual);
/// True in the builds under sanitizers, which need a real /proc, descriptors and memory of their own.
bool Sanitized();
/// Of all programs that have ended. Other load on the machine hardly changes it, unlike the time that passes.
double CpuSecondsOfPrograms();
bool WaitFor(const std::function<bool()>& condition, double seconds = 10);
/// Mounts an empty tmpfs of `kilobytes` at `directory`.
void MountSmallDisk(const std::string& directory, int kilobytes);
/// Bytes that do not compress, without line feeds and zeros.
std::string Noise(size_t size, size_t seed);
/// What a call writes to standard error.
std::string StandardErrorOf(const std::function<void()>& call);

/// The text of a mapped log file: its complete gzip members, up to the first bytes that are not one.
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
  /// `before` are commands of a shell that then becomes the daemon.
  explicit Daemon(const std::string& arguments, const std::string& before = "", const char* program = QUILCAT_DAEMON);
  ~Daemon();
  Daemon(const Daemon&) = delete;

  pid_t pid() const { return process; }
  void Signal(int number) const { kill(process, number); }
  /// Waits for its end: the exit status, or 1000 and the number of the signal that ended it; -1 when it runs on.
  int Wait(double seconds = 20);
  bool IsClosable() const;  ///< has its handler of SIGUSR2
  bool WaitUntilRunning();  ///< until it has its title, which it takes when all its collectors are set up
  int Close();              ///< sends SIGUSR2 then, and waits
  std::string Proc(const std::string& file) const { return ReadFile("/proc/" + std::to_string(process) + '/' + file); }
  std::string Title() const;
  std::string Errors() const { return ReadFile(errorFile); }
  bool HasReported(const std::string& message) const { return Errors().find(message) != std::string::npos; }

 private:
  pid_t process = -1;
  std::string errorFile;
};

/// Writes into /proc/kmsg, the fifo of the test device, as the kernel would: whole lines.
class KernelLog {
 public:
  KernelLog();
  ~KernelLog() { close(fd); }
  /// False when the node's reader is slow and `text` did not fit any more.
  bool Write(const std::string& text) const {
    return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  }
  std::string ReadAll() const;  ///< takes what nobody has read
  bool IsDrained() const;       ///< the node's reader has taken everything
  /// Line i of the test's numbered kernel log, with a line feed.
  static std::string Line(int i);
  /// The numbers of such lines in decoded text; -1 for a line that is none.
  static std::vector<int> Numbers(const std::string& text);

 private:
  int fd;
};

/// Numbered lines in the kernel log as fast as they are read, while somebody looks into /data/log/t now and again.
class KernelLoad {
 public:
  ~KernelLoad() { done = true; }
  /// Ends the load and returns what nobody has read.
  std::string Unread() {
    done = true;
    feeder.wait();
    return kernel.ReadAll();
  }

 private:
  void Feed() const;

  const KernelLog kernel;
  std::atomic<bool> done{false};
  std::future<void> feeder = std::async(std::launch::async, [this] { Feed(); });
};

/// A group of a configuration that reads `node`.
std::string Group(const std::string& style, const std::string& output, const std::string& node);
/// A service "test" in the configuration file; its groups stream the kernel log to /data/log/t/cat unless others are
/// given.
void ConfigureStream(const std::string& writeMode, int rotateKilobytes, int files,
                     const std::string& groups = Group("monitor_node", "/data/log/t/cat", "/proc/kmsg"));

}  // namespace Device

#endif  // QUILCAT_TESTS_DEVICE_H_
