#include "device.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
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

std::vector<std::string> List(const std::string& directory, const std::string& part, const std::string& prefix) {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
    const std::string name = entry.path().filename();
    if (name.find(part) != std::string::npos) names.push_back(prefix + name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::string Shell(const std::string& command) {
  EXPECT_EQ(system(("(" + command + ") > /tmp/output").c_str()), 0) << command;
  return ReadFile("/tmp/output");
}

std::string OwnerAndMode(const std::string& path) {
  return Lines(Shell("stat -c '%U:%G %a' '" + path + "' 2> /dev/null || echo missing"))[0];
}

int Rounds(int usual) {
#ifdef QUILCAT_EMULATED
  usual = (usual + 9) / 10;
#endif
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

double CpuSecondsOfPrograms() {
  rusage usage;
  getrusage(RUSAGE_CHILDREN, &usage);
  const auto seconds = [](timeval time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

bool WaitFor(const std::function<bool()>& condition, double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    usleep(3000);
  }
  return true;
}

void MountSmallDisk(const std::string& directory, int kilobytes) {
  Shell("mkdir -p " + directory + " && mount -t tmpfs -o size=" + std::to_string(kilobytes) + "k none " + directory);
}

std::string Noise(size_t size, size_t seed) {
  std::mt19937 random(static_cast<unsigned>(seed));
  std::string bytes(size, '\0');
  for (char& byte : bytes)
    while (byte == '\0' || byte == '\n') byte = static_cast<char>(random());
  return bytes;
}

std::string StandardErrorOf(const std::function<void()>& call) {
  testing::internal::CaptureStderr();
  call();
  return testing::internal::GetCapturedStderr();
}

Decoded Decode(const std::string& path) {
  std::string bytes = ReadFile(path);
  Decoded decoded;
  z_stream stream = {};
  stream.next_in = reinterpret_cast<Bytef*>(bytes.data());
  stream.avail_in = static_cast<uInt>(bytes.size());
  EXPECT_EQ(inflateInit2(&stream, 15 + 16), Z_OK);
  int result = Z_STREAM_END;
  while (result == Z_STREAM_END && stream.avail_in > 0 && *stream.next_in == 0x1f) {
    inflateReset(&stream);
    std::string member(1 << 20, '\0');  // longer than any
    stream.next_out = reinterpret_cast<Bytef*>(member.data());
    stream.avail_out = static_cast<uInt>(member.size());
    result = inflate(&stream, Z_FINISH);
    if (result == Z_STREAM_END) {
      decoded.text.append(member, 0, stream.total_out);
      ++decoded.members;
    }
  }
  inflateEnd(&stream);
  decoded.zeroTail = stream.avail_in;
  decoded.sound = result == Z_STREAM_END && bytes.find_first_not_of('\0', bytes.size() - stream.avail_in) == bytes.npos;
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
  return Shell("exec 2> /dev/null; o=" + output +
               "; for archive in 4 3 2 1 0; do"
               "    for file in 5 4 3 2 1; do tar xzOf $o-$archive.tar.gz ${o##*/}.$file; done;"
               "  done; cat $o.5 $o.4 $o.3 $o.2 $o.1 $o; true");
}

Daemon::Daemon(const std::string& arguments, const std::string& before, const char* program) {
  static int count = 0;
  errorFile = "/tmp/daemon-errors-" + std::to_string(count++);
  const std::string command = "exec 2> " + errorFile + "\n" + before + "\nexec " + program + ' ' + arguments;
  process = fork();
  if (process == 0) {
    close_range(STDERR_FILENO + 1, ~0u, 0);  // what the test itself was given
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
}

Daemon::~Daemon() {
  if (process > 0) {
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
  }
}

int Daemon::Wait(double seconds) {
  int status = 0;
  if (!WaitFor([&] { return waitpid(process, &status, WNOHANG) == process; }, seconds)) return -1;
  process = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

std::string Daemon::Title() const {
#ifdef QUILCAT_EMULATED
  // An emulator keeps the title to itself; the name of the thread is the same.
  return Lines(Proc("comm") + "\n")[0];
#else
  return Proc("cmdline").c_str();
#endif
}

bool Daemon::IsClosable() const {
#ifdef QUILCAT_EMULATED
  // An emulator catches every signal from the start. The service's name comes when SIGUSR2 waits for the handler.
  const std::string named = "\n" + Title() + "\n";
  std::string arguments = Proc("cmdline");
  std::replace(arguments.begin(), arguments.end(), '\0', '\n');
  return arguments.size() > named.size() && arguments.find(named, arguments.size() - named.size()) != std::string::npos;
#endif
  // SIGUSR2, bit 11 of the mask of caught signals.
  const std::string status = Proc("status");
  const size_t at = status.find("SigCgt:");
  return at != std::string::npos && (std::stoull(status.substr(at + 7), nullptr, 16) >> 11 & 1) != 0;
}

bool Daemon::WaitUntilRunning() {
  // Until all its collectors are set up, its title is a path. With many groups and a slow build that takes a while.
  const bool running = WaitFor([this] { return IsClosable() && Title().find('/') == std::string::npos; }, 30);
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

// Reading too, so that the fifo has a writer and a reader whatever the daemon does.
KernelLog::KernelLog() : fd(open("/proc/kmsg", O_RDWR | O_NONBLOCK | O_CLOEXEC)) {
  // A child of a daemon that has just ended may have kept the fifo, and with it old lines.
  ReadAll();
}

std::string KernelLog::ReadAll() const {
  std::string text(1 << 16, '\0');  // all that a fifo holds
  const ssize_t size = read(fd, text.data(), text.size());
  return text.substr(0, size > 0 ? static_cast<size_t>(size) : 0);
}

bool KernelLog::IsDrained() const {
  int unread = 1;
  return ioctl(fd, FIONREAD, &unread) == 0 && unread == 0;
}

std::string KernelLog::Line(int i) {
  std::string line = "<6>[" + std::to_string(i) + "] driver " + std::to_string(i % 1000 * 919 % 1000) + ": ";
  return line.append(static_cast<size_t>(i % 40), static_cast<char>('a' + i % 26)) + " end\n";
}

std::vector<int> KernelLog::Numbers(const std::string& text) {
  std::vector<int> numbers;
  for (const std::string& line : Lines(text)) {
    const size_t own = line.find("<6>[");  // after "11-22 20:17:29.042 ", or at the start without a local time
    const int number = own == 0 || own == 19 ? atoi(line.c_str() + own + 4) : -1;
    numbers.push_back(number >= 0 && line.substr(own) + "\n" == Line(number) ? number : -1);
  }
  return numbers;
}

void KernelLoad::Feed() const {
  for (int i = 0; !done;)
    if (kernel.Write(KernelLog::Line(i)) && ++i % 500 == 0) List("/data/log/t");
}

std::string Group(const std::string& style, const std::string& output, const std::string& node) {
  return "<quilcatGroup><logStyle value='" + style + "' interval='0'/><outputFilePath value='" + output +
         "'/><inputNodeSet><dataPath value='" + node + "'/><title value='title'/></inputNodeSet></quilcatGroup>";
}

void ConfigureStream(const std::string& writeMode, int rotateKilobytes, int files, const std::string& groups) {
  WriteFile("/system/etc/quilcat_config.xml", "<c><quilcat name='test'><logRotateSizeKBytes value='" +
                                                  std::to_string(rotateKilobytes) + "'/><maxCompressdFiles value='" +
                                                  std::to_string(files) + "'/><writeMode value='" + writeMode + "'/>" +
                                                  groups + "</quilcat></c>");
}

}  // namespace Device
