#include "device.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace Device {

void WriteFile(const std::string& path, const std::string& text) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

std::string ReadFile(const std::string& path) {
  std::stringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

void SetProperty(const std::string& name, const std::string& value) {
  WriteFile("/dev/__properties__/" + name, value);
}

std::vector<std::string> List(const std::string& directory) {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> IndexedFiles(const std::string& directory) {
  std::vector<std::string> paths;
  for (const std::string& name : List(directory)) {
    if (name.find(".I") != std::string::npos) {
      paths.push_back(directory + "/" + name);
    }
  }
  return paths;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

std::string OwnerAndMode(const std::string& path) {
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) {
    return "missing";
  }
  const passwd* user = getpwuid(status.st_uid);
  const group* owners = getgrgid(status.st_gid);
  char mode[16];
  snprintf(mode, sizeof mode, "%o", status.st_mode & 07777);
  return std::string(user ? user->pw_name : "?") + ":" + (owners ? owners->gr_name : "?") + " " + mode;
}

int Rounds(int usual) {
  const char* factor = getenv("QUILCAT_SOAK");
  return factor != nullptr ? usual * std::max(1, atoi(factor)) : usual;
}

bool Sanitized() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return true;
#else
  return false;
#endif
}

bool WaitFor(const std::function<bool()>& condition, double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    usleep(3000);
  }
  return true;
}

void MountSmallDisk(const std::string& directory, int kilobytes) {
  std::filesystem::create_directories(directory);
  const std::string options = "size=" + std::to_string(kilobytes) + "k";
  ASSERT_EQ(mount("none", directory.c_str(), "tmpfs", 0, options.c_str()), 0) << strerror(errno);
}

std::string StandardErrorOf(const std::function<void()>& call) {
  testing::internal::CaptureStderr();
  call();
  return testing::internal::GetCapturedStderr();
}

Decoded Decode(const std::string& path) {
  const std::string bytes = ReadFile(path);
  Decoded decoded;
  z_stream stream = {};
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
  stream.avail_in = static_cast<uInt>(bytes.size());
  EXPECT_EQ(inflateInit2(&stream, 15 + 16), Z_OK);
  while (stream.avail_in > 0 && *stream.next_in == 0x1f) {
    inflateReset(&stream);
    std::string member;
    int result;
    do {
      char text[65536];
      stream.next_out = reinterpret_cast<Bytef*>(text);
      stream.avail_out = sizeof text;
      result = inflate(&stream, Z_NO_FLUSH);
      member.append(text, sizeof text - stream.avail_out);
    } while (result == Z_OK);
    if (result != Z_STREAM_END) {
      inflateEnd(&stream);
      return decoded;
    }
    decoded.text += member;
    ++decoded.members;
  }
  decoded.zeroTail = stream.avail_in;
  decoded.sound = std::all_of(bytes.end() - stream.avail_in, bytes.end(), [](char c) { return c == 0; });
  inflateEnd(&stream);
  return decoded;
}

std::string DecodeAll(const std::vector<std::string>& paths) {
  std::string text;
  for (const std::string& path : paths) {
    const Decoded decoded = Decode(path);
    EXPECT_TRUE(decoded.sound) << path;
    text += decoded.text;
  }
  return text;
}

std::string FactoryText(const std::string& output) {
  const std::string script = "exec > /tmp/factory-text 2> /dev/null; o=" + output +
                             "; b=${o##*/};"
                             "for archive in 4 3 2 1 0; do"
                             "  for file in 5 4 3 2 1; do tar xzOf $o-$archive.tar.gz $b.$file; done;"
                             "done;"
                             "cat $o.5 $o.4 $o.3 $o.2 $o.1 $o; exit 0";
  EXPECT_EQ(system(script.c_str()), 0);
  return ReadFile("/tmp/factory-text");
}

Daemon::Daemon(std::vector<std::string> arguments, std::vector<std::string> environment, const char* program,
               const rlimit* descriptors) {
  static int count = 0;
  errorFile = "/tmp/daemon-errors-" + std::to_string(count++);
  arguments.insert(arguments.begin(), program);
  std::vector<char*> argv;
  for (std::string& argument : arguments) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  process = fork();
  if (process == 0) {
    for (std::string& variable : environment) {
      putenv(variable.data());
    }
    const int fd = open(errorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(fd, STDERR_FILENO);
    close_range(STDERR_FILENO + 1, ~0u, 0);  // also what the test itself was given
    if (descriptors != nullptr) {
      setrlimit(RLIMIT_NOFILE, descriptors);
    }
    execv(argv[0], argv.data());
    _exit(127);
  }
}

Daemon::~Daemon() {
  if (process > 0) {
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
  }
}

void Daemon::Signal(int number) const {
  kill(process, number);
}

int Daemon::Wait(double seconds) {
  int status = 0;
  if (!WaitFor([&] { return waitpid(process, &status, WNOHANG) == process; }, seconds)) {
    return -1;
  }
  process = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

bool Daemon::IsClosable() const {
  // SIGUSR2, bit 11 of the mask of caught signals.
  const std::string status = ReadFile("/proc/" + std::to_string(process) + "/status");
  const size_t at = status.find("SigCgt:");
  return at != std::string::npos && (std::stoull(status.substr(at + 7), nullptr, 16) >> 11 & 1) != 0;
}

bool Daemon::WaitUntilRunning() {
  // The title that init gave, like that of the test before the start, is a path.
  const bool running = WaitFor([this] {
    const std::string title = Title();
    return !title.empty() && title.find('/') == std::string::npos;
  });
#ifdef __SANITIZE_THREAD__
  // This sanitizer's own handler can lose a signal that comes in the first millisecond.
  usleep(50000);
#endif
  return running;
}

int Daemon::Close() {
  EXPECT_TRUE(WaitUntilRunning()) << Errors();
  Signal(SIGUSR2);
  return Wait();
}

std::string Daemon::Title() const {
  return ReadFile("/proc/" + std::to_string(process) + "/cmdline").c_str();
}

// Reading too, so that the fifo has a writer and a reader whatever the daemon does.
KernelLog::KernelLog() : fd(open("/proc/kmsg", O_RDWR | O_NONBLOCK | O_CLOEXEC)) {
  // A child of a daemon that has just ended may have kept the fifo, and with it old lines.
  ReadAll();
}
KernelLog::~KernelLog() {
  close(fd);
}

bool KernelLog::Write(const std::string& text) const {
  return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

std::string KernelLog::ReadAll() const {
  std::string text;
  char piece[4096];
  for (ssize_t size; (size = read(fd, piece, sizeof piece)) > 0;) {
    text.append(piece, static_cast<size_t>(size));
  }
  return text;
}

bool KernelLog::IsDrained() const {
  int unread = 1;
  return ioctl(fd, FIONREAD, &unread) == 0 && unread == 0;
}

std::string KernelLog::Line(int i) {
  std::string line = "<6>[" + std::to_string(i) + "] driver " + std::to_string(i * 7919 % 1000) + ": ";
  return line.append(static_cast<size_t>(i % 40), static_cast<char>('a' + i % 26)) + " end\n";
}

std::vector<int> KernelLog::Numbers(const std::string& text) {
  constexpr size_t kClockLength = 19;
  std::vector<int> numbers;
  for (const std::string& line : Lines(text)) {
    // Without a local time there is no clock.
    const std::string own =
        line.compare(0, 4, "<6>[") == 0 || line.size() < kClockLength ? line : line.substr(kClockLength);
    const int number = own.size() > 4 ? atoi(own.c_str() + 4) : -1;
    numbers.push_back(number >= 0 && own + "\n" == Line(number) ? number : -1);
  }
  return numbers;
}

void ConfigureStream(const std::string& writeMode, int rotateKilobytes, int files) {
  WriteFile("/system/etc/quilcat_config.xml",
            "<c><quilcat name='test'><logRotateSizeKBytes value='" + std::to_string(rotateKilobytes) +
                "'/><maxCompressdFiles value='" + std::to_string(files) + "'/><writeMode value='" + writeMode +
                "'/><quilcatGroup><logStyle value='monitor_node'/><outputFilePath value='/data/log/t/cat'/>"
                "<inputNodeSet><dataPath value='/proc/kmsg'/></inputNodeSet></quilcatGroup></quilcat></c>");
}

}  // namespace Device
