// The first program of the phone in a box. It does what Android's init does with a service file, as far as device/
// needs it: that file is read as it is, and what this program does not know it reports. Static: nothing else is there
// yet.
//
// As the first process:    loads modules and the policy, labels the files, runs the file's actions and services
// usage: phone start|stop NAME | shutdown    asks the first process; `stop` kills, a shutdown sends SIGTERM first
//        phone label PATH...                 the SELinux labels
//        phone load SECONDS                  a numbered line ten times a second, on the console and into the kernel log

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <poll.h>
#include <regex.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Words = std::vector<std::string>;
namespace fs = std::filesystem;

constexpr char kRequests[] = "/dev/init";
constexpr int kRestartSeconds = 5;
constexpr int kShutdownSeconds = 6;

struct Service {
  Words command;
  std::map<std::string, Words> options;
  pid_t pid = 0;
  time_t started = 0;
  bool wanted = false;
};

std::map<std::string, Service> services;
std::map<std::string, std::vector<Words>> actions;
std::vector<std::pair<std::string, std::string>> contexts;  ///< pattern, label; the last match counts

void Report(const std::string& text) {
  std::ofstream("/dev/console") << "init: " << text << std::endl;
}

std::vector<Words> ReadLines(const std::string& path) {
  std::vector<Words> lines;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line.substr(0, line.find('#')));
    Words found{std::istream_iterator<std::string>(words), {}};
    if (!found.empty()) lines.push_back(found);
  }
  return lines;
}

bool Write(const std::string& path, const std::string& text) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const bool written = fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  if (fd >= 0) close(fd);
  if (!written) Report("error: cannot write " + path + ": " + strerror(errno));
  return written;
}

// Labels -------------------------------------------------------------------------------------------------------------

std::string LabelOf(const std::string& path) {
  std::string label;
  for (const auto& [pattern, context] : contexts) {
    regex_t regex;
    regcomp(&regex, ("^(" + pattern + ")$").c_str(), REG_EXTENDED | REG_NOSUB);
    if (regexec(&regex, path.c_str(), 0, nullptr, 0) == 0) label = context;
    regfree(&regex);
  }
  return label;
}

void Restore(const std::string& path) {
  const std::string label = LabelOf(path);
  if (!label.empty() && lsetxattr(path.c_str(), "security.selinux", label.c_str(), label.size() + 1, 0) != 0)
    Report("error: no label " + label + " for " + path + ": " + strerror(errno));
}

void RestoreAll(const std::string& root) {
  Restore(root);
  std::error_code isFile;
  for (const auto& entry : fs::recursive_directory_iterator(root, isFile)) Restore(entry.path());
}

void MakeLabelled(const std::string& path, mode_t mode) {
  Write("/proc/self/attr/fscreate", LabelOf(path));
  if (mkdir(path.c_str(), mode) == 0) chmod(path.c_str(), mode);  // whatever the file-creation mask is
  Write("/proc/self/attr/fscreate", "\n");
}

// Services -----------------------------------------------------------------------------------------------------------

unsigned IdOf(const std::string& name, bool isGroup) {
  std::ifstream file(isGroup ? "/etc/group" : "/etc/passwd");
  for (std::string line; std::getline(file, line);)
    if (line.rfind(name + ":x:", 0) == 0) return static_cast<unsigned>(std::stoul(line.substr(name.size() + 3)));
  Report("error: nobody is called " + name);
  return 0;
}

/// Leaves the process, and what it runs, these capabilities.
void Limit(const Words& names) {
  const Words all = {"CHOWN", "DAC_OVERRIDE", "DAC_READ_SEARCH", "FOWNER", "FSETID",
                     "KILL",  "SETGID",       "SETUID",          "SETPCAP"};
  uint64_t kept = 0;
  for (const std::string& name : names) {
    uint64_t number = 0;
    while (number < all.size() && all[number] != name) ++number;
    if (name == "SYSLOG") number = CAP_SYSLOG;
    if (number == all.size()) Report("error: no capability " + name);
    kept |= uint64_t{1} << number;
  }
  for (unsigned long i = 0; prctl(PR_CAPBSET_READ, i, 0, 0, 0) >= 0; ++i)
    if ((kept >> i & 1) == 0) prctl(PR_CAPBSET_DROP, i, 0, 0, 0);
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  const auto low = static_cast<uint32_t>(kept), high = static_cast<uint32_t>(kept >> 32);
  const __user_cap_data_struct data[] = {{low, low, low}, {high, high, high}};
  syscall(SYS_capset, &header, data);
}

/// Runs a command as a child. Options as those of a service.
pid_t Run(const Words& command, const std::map<std::string, Words>& options) {
  const auto option = [&](const char* name) { return options.count(name) != 0 ? options.at(name) : Words(); };
  const pid_t child = fork();
  if (child != 0) return child;
  const int null = open("/dev/null", O_RDWR);
  for (int fd = 0; fd < 3; ++fd) dup2(null, fd);
  close(null);
  setsid();
  if (const Words score = option("oom_score_adjust"); !score.empty()) Write("/proc/self/oom_score_adj", score[0]);
  if (const Words label = option("seclabel"); !label.empty()) Write("/proc/self/attr/exec", label[0]);
  std::vector<gid_t> groups;
  for (const std::string& name : option("group")) groups.push_back(IdOf(name, true));
  if (!groups.empty() && (setgid(groups[0]) != 0 || setgroups(groups.size() - 1, groups.data() + 1) != 0)) _exit(1);
  const Words user = option("user");
  if (options.count("capabilities") != 0) prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0);
  if (!user.empty() && setuid(IdOf(user[0], false)) != 0) _exit(1);
  if (options.count("capabilities") != 0) Limit(option("capabilities"));
  std::vector<char*> words;
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  execv(words[0], words.data());
  Report("error: cannot run " + command[0] + ": " + strerror(errno));
  _exit(127);
}

void Start(Service& service) {
  service.wanted = service.options.count("oneshot") == 0;
  if (service.pid != 0) return;
  service.started = time(nullptr);
  service.pid = Run(service.command, service.options);
}

void Stop(Service& service) {
  service.wanted = false;
  if (service.pid != 0) kill(service.pid, SIGKILL);
}

/// Notes which services have ended; starts those again that are to run.
void Reap() {
  int status = 0;
  for (pid_t pid; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
    for (auto& [name, service] : services) {
      if (service.pid != pid) continue;
      service.pid = 0;
      Report(name + (WIFSIGNALED(status) ? " was killed by " + std::to_string(WTERMSIG(status))
                                         : " ended with " + std::to_string(WEXITSTATUS(status))));
    }
  }
  for (auto& [name, service] : services) {
    const time_t since = time(nullptr) - service.started;  // below zero: somebody has set the clock
    if (service.wanted && service.pid == 0 && (since >= kRestartSeconds || since < 0)) Start(service);
  }
}

// The file -----------------------------------------------------------------------------------------------------------

void Execute(const Words& words) {
  const std::string& name = words[0];
  const auto argument = [&](size_t i) { return i < words.size() ? words[i] : std::string(); };
  const auto own = [&](const std::string& user, const std::string& group, const std::string& path) {
    if (!user.empty() && chown(path.c_str(), IdOf(user, false), IdOf(group, true)) != 0)
      Report("error: cannot chown " + path);
  };
  if (name == "mkdir") {
    MakeLabelled(argument(1), static_cast<mode_t>(std::stoul(words.size() > 2 ? words[2] : "755", nullptr, 8)));
    own(argument(3), argument(4), argument(1));
  } else if (name == "chmod") {
    chmod(argument(2).c_str(), static_cast<mode_t>(std::stoul(words[1], nullptr, 8)));
  } else if (name == "chown") {
    own(argument(1), argument(2), argument(3));
  } else if (name == "write") {
    Write(argument(1), argument(2));
  } else if (name == "copy") {
    std::ifstream from(argument(1));
    if (from) Write(argument(2), {std::istreambuf_iterator<char>(from), {}});
  } else if (name == "restorecon") {
    Restore(argument(1));
  } else if (name == "start" && services.count(argument(1)) != 0) {
    Start(services[words[1]]);
  } else if (name == "stop" && services.count(argument(1)) != 0) {
    Stop(services[words[1]]);
  } else if (name == "exec") {
    size_t start = 1;
    while (start < words.size() && words[start] != "--") ++start;
    const Words before(words.begin() + 1, words.begin() + static_cast<ptrdiff_t>(start));
    std::map<std::string, Words> options;
    if (!before.empty() && before[0] != "-") options["seclabel"] = {before[0]};
    if (before.size() > 1) options["user"] = {before[1]};
    if (before.size() > 2) options["group"] = Words(before.begin() + 2, before.end());
    waitpid(Run(Words(words.begin() + static_cast<ptrdiff_t>(start) + 1, words.end()), options), nullptr, 0);
  } else {
    Report("error: no command " + name + ' ' + argument(1));
  }
}

void Trigger(const std::string& name) {
  for (const Words& words : actions[name]) Execute(words);
}

void ReadServiceFile(const std::string& path) {
  const Words known = {
      "class", "user", "group", "capabilities", "seclabel", "oneshot", "disabled", "oom_score_adjust", "shutdown"};
  Service* service = nullptr;
  std::vector<Words>* action = nullptr;
  for (const Words& words : ReadLines(path)) {
    if (words[0] == "service") {
      service = &services[words[1]];
      service->command.assign(words.begin() + 2, words.end());
      action = nullptr;
    } else if (words[0] == "on") {
      service = nullptr;
      action = &actions[words[1]];
    } else if (action != nullptr) {
      action->push_back(words);
    } else if (service != nullptr && std::find(known.begin(), known.end(), words[0]) != known.end()) {
      service->options[words[0]].assign(words.begin() + 1, words.end());
    } else {
      Report("error: no option " + words[0]);
    }
  }
}

// The machine --------------------------------------------------------------------------------------------------------

std::string Parameter(const std::string& name) {
  for (const Words& words : ReadLines("/proc/cmdline"))
    for (const std::string& word : words)
      if (word.rfind(name + '=', 0) == 0) return word.substr(name.size() + 1);
  return "";
}

/// All that is done before SELinux enforces. Ends in this program once more, in the domain that its label leads to.
void SetUp() {
  for (const char* path : {"/proc", "/sys", "/dev", "/tmp", "/data"}) mkdir(path, 0755);
  mount("proc", "/proc", "proc", 0, nullptr);
  mount("sysfs", "/sys", "sysfs", 0, nullptr);
  mount("devtmpfs", "/dev", "devtmpfs", 0, nullptr);
  mount("selinuxfs", "/sys/fs/selinux", "selinuxfs", 0, nullptr);
  mount("tmpfs", "/tmp", "tmpfs", 0, nullptr);
  mount("tmpfs", "/sys/class", "tmpfs", 0, nullptr);  // where the nodes are that this kernel lacks
  std::error_code ignored;
  fs::copy("/nodes", "/sys/class", fs::copy_options::recursive, ignored);
  mkdir("/dev/__properties__", 0755);
  mkfifo(kRequests, 0600);
  for (const Words& words : ReadLines("/modules"))
    if (syscall(SYS_finit_module, open(words[0].c_str(), O_RDONLY | O_CLOEXEC), "", 0) != 0)
      Report("error: no module " + words[0] + ": " + strerror(errno));
  std::ifstream policy("/policy", std::ios::binary);
  Write("/sys/fs/selinux/load", {std::istreambuf_iterator<char>(policy), {}});
  for (const auto& disk : fs::directory_iterator("/sys/block"))
    for (const Words& serial : ReadLines(disk.path() / "serial"))
      symlink(disk.path().filename().c_str(), ("/dev/disk-" + serial[0]).c_str());
  if (!Parameter("phone.fs").empty() &&
      mount("/dev/disk-data", "/data", Parameter("phone.fs").c_str(), MS_NOSUID | MS_NODEV | MS_NOATIME,
            Parameter("phone.options").c_str()) != 0)
    Report(std::string("error: no /data: ") + strerror(errno));
  for (const char* path : {"/init", "/lib", "/system", "/sys/class", "/dev"}) RestoreAll(path);
  if (!Parameter("phone.fs").empty()) Restore("/data");
  execl("/init", "/init", "second", nullptr);
}

void Shell() {
  if (fork() != 0) return;
  setsid();
  const int console = open("/dev/ttyAMA0", O_RDWR);
  for (int fd = 0; fd < 3; ++fd) dup2(console, fd);
  execl("/system/bin/sh", "sh", Parameter("phone.shell").c_str(), nullptr);
}

void ShutDown() {
  Trigger("shutdown");
  for (auto& [name, service] : services) {
    service.wanted = false;
    if (service.pid != 0) kill(service.pid, SIGTERM);
  }
  const auto isRunning = [](const auto& entry) { return entry.second.pid != 0; };
  for (int i = 0; i < 100 * kShutdownSeconds && std::any_of(services.begin(), services.end(), isRunning); ++i) {
    usleep(10000);
    Reap();
  }
  for (auto& [name, service] : services) Stop(service);
  sync();
  reboot(RB_POWER_OFF);
}

[[noreturn]] void BeInit() {
  setenv("PATH", "/system/bin", 1);
  if (Parameter("phone.permissive").empty()) Write("/sys/fs/selinux/enforce", "1");
  Write("/proc/sys/kernel/printk_ratelimit", "0");  // each denial is to be seen
  if (!Parameter("phone.fs").empty()) ReadServiceFile("/system/etc/init/quilcat.rc");
  for (const char* name : {"early-init", "init", "fs", "post-fs", "post-fs-data", "boot"}) Trigger(name);
  for (const char* name : {"core", "main", "default", "late_start"}) {
    for (auto& [unused, service] : services) {
      const bool isOne = service.options.count("class") != 0 ? service.options["class"][0] == name : name[0] == 'd';
      if (isOne && service.options.count("disabled") == 0) Start(service);
    }
  }
  Trigger("property:sys.boot_completed=1");
  Shell();
  pollfd requests = {open(kRequests, O_RDWR | O_CLOEXEC), POLLIN, 0};
  for (;;) {
    char text[256];
    if (poll(&requests, 1, 100) > 0) {
      std::istringstream words(std::string(text, static_cast<size_t>(read(requests.fd, text, sizeof text))));
      const Words request{std::istream_iterator<std::string>(words), {}};
      if (request[0] == "shutdown") ShutDown();
      Execute(request);
    }
    Reap();
  }
}

int Load(int seconds) {
  const int log = open("/dev/kmsg", O_WRONLY);
  for (int number = 0; number < 10 * seconds; ++number) {
    timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    char line[64];
    const int length =
        snprintf(line, sizeof line, "load %d %ld.%03ld end\n", number, now.tv_sec, now.tv_nsec / 1000000);
    if (write(log, line, static_cast<size_t>(length)) != length || write(1, line, static_cast<size_t>(length)) < 0)
      return 1;
    usleep(100000);
  }
  return 0;
}

}  // namespace

int main(int count, char** words) {
  if (getpid() == 1) {
    for (const char* path : {"/contexts", "/file_contexts"})
      for (const Words& line : ReadLines(path)) contexts.emplace_back(line[0], line.back());
    if (count == 1) SetUp();
    BeInit();
  }
  if (count == 3 && strcmp(words[1], "load") == 0) return Load(atoi(words[2]));
  if (count > 2 && strcmp(words[1], "label") == 0) {
    for (int i = 2; i < count; ++i) {
      char label[256] = "";
      lgetxattr(words[i], "security.selinux", label, sizeof label - 1);
      puts(label);
    }
    return 0;
  }
  std::string request;
  for (int i = 1; i < count; ++i) request += words[i] + std::string(" ");
  return request.empty() || !Write(kRequests, request);
}
