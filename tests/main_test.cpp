// The daemon as a process, as init starts it and as a person looks at it.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <random>

#include "device.h"
#include "main/process_title.h"

using namespace Device;

namespace {

/// Numbers of a kernel log without gap, repetition or torn line, at least `count`; the first `start` may be missing.
void ExpectConsecutive(const std::vector<int>& numbers, size_t count, int start = 0) {
  EXPECT_GE(numbers.size(), count);
  for (size_t i = 0; i < numbers.size(); ++i) ASSERT_EQ(numbers[i], start + static_cast<int>(i));
}

}  // namespace

TEST(CommandLine, TellsHowItIsUsed) {
  const std::string unknown = "Main:Unrecognized Option\n", program = QUILCAT_DAEMON;
  const std::string usage = "Usage: " + program +
                            " [options] \noptions include:\n"
                            "  -b <quilcat>      Trigger a pre-defined quilcat service <quilcat>\n";
  const std::tuple<std::string, int, std::string> cases[] = {
      {"", 0, usage},
      {"--help", 0, usage},
      {"-b", 0, usage},
      {"-b a b", 0, usage},
      {"-x y", 255, program + ": invalid option -- 'x'\n" + unknown + usage},
      {"a -b", 255, program + ": option requires an argument -- 'b'\n" + unknown + usage},
  };
  for (const auto& [arguments, status, errors] : cases) {
    Daemon daemon(arguments);
    EXPECT_EQ(daemon.Wait(), status);
    EXPECT_EQ(daemon.Errors(), errors);
  }
}

TEST(CommandLine, IdlesWithoutItsService) {
  for (const std::string name : {"unknown", "kmsglogca", "kmsglogcatx", "''"}) {
    Daemon daemon("-b " + name);
    EXPECT_TRUE(WaitFor([&] { return daemon.Errors() == "Main:parse_config_file failed, exit!!\n"; }));
    EXPECT_EQ(daemon.Title(), QUILCAT_DAEMON);
    daemon.Signal(SIGUSR2);
    EXPECT_EQ(daemon.Wait(), 1000 + SIGUSR2);  // no handler
  }
  // 300 characters are looked up by the first 255.
  const std::string name(255, 'n');
  WriteFile("/system/etc/quilcat_config.xml", "<c><quilcat name='" + name + "'/></c>");
  Daemon daemon("-b " + name + std::string(45, 'x'));
  EXPECT_TRUE(WaitFor([&] { return daemon.HasReported("name              : " + name + "\n"); }));
}

TEST(ProcessTitle, CoversTheStringsThatFollowOneAnother) {
  char** const outer = environ;
  char area[] = "quilcat\0-b\0name\0A=1\0B=2";
  char elsewhere[] = "C=3";
  char* argv[] = {area, area + 8, area + 11, nullptr};
  char* variables[] = {area + 16, elsewhere, area + 20, elsewhere, nullptr};
  environ = variables;
  ProcessTitle title(argv);
  const std::string before(area, sizeof area);
  EXPECT_FALSE(title.Set("a name of 21 letters!"));  // two bytes stay behind a name
  EXPECT_EQ(std::string(area, sizeof area), before);
  EXPECT_TRUE(title.Set("a name of 20 letters"));
  EXPECT_STREQ(area, "a name of 20 letters");
  EXPECT_EQ(std::string(getenv("A")) + getenv("B") + getenv("C"), "123");
  environ = outer;
  for (char* copy : variables) free(copy);
}

/// However it was started, and wherever a start or a collector hangs, it closes soon, and keeps what it has read.
TEST(Service, ClosesAfterAnyStart) {
  WriteFile("/tmp/bin/chown", "#!/bin/sh\nexec /bin/sleep 60\n");
  Shell("chmod +x /tmp/bin/chown; mkfifo /tmp/node /tmp/errors");
  const struct {
    std::string before;  ///< commands of a shell that then becomes the daemon
    const char* title;   ///< the node of the first group's title
    int signal;
    bool keeps, reports;
  } kCases[] = {
      {"", "/tmp", SIGTERM, true, true},
      {"exec 0<&- 1>&- 2>&-", "/tmp", SIGUSR2, true, false},
      {"exec 2>&-", "/tmp", SIGUSR2, true, false},
      {"alias exec='exec env --block-signal'", "/tmp", SIGUSR2, true, true},
      {"alias exec='exec prlimit --sigpending=0'", "/tmp", SIGUSR2, true, true},
      {"true < /tmp/errors & exec 2> /tmp/errors", "/tmp", SIGUSR2, true, false},
      {"sleep 30 < /tmp/errors & exec 2> /tmp/errors", "/tmp", SIGUSR2, true, false},
      {"ulimit -f 32", "/tmp", SIGUSR2, false, true},
      {"", "/tmp/node", SIGUSR2, true, true},
      {"PATH=/tmp/bin", "/tmp", SIGUSR2, false, true},
      {"export QUILCAT_FAULT=read:4", "/tmp", SIGUSR2, true, true},  // title, row, line; the next line's hangs
  };
  for (const auto& start : kCases) {
    SCOPED_TRACE(start.before + ' ' + start.title);
    const std::string titled =
        "<quilcatGroup><logStyle value='poll_node' interval='9'/><outputFilePath value='/data/log/u/u'/><inputNodeSet>"
        "<titlePath value='" +
        std::string(start.title) + "'/><dataPath value='/tmp'/></inputNodeSet></quilcatGroup>";
    ConfigureStream("mmap", 0, 10, titled + Group("monitor_node", "/data/log/t/cat", "/proc/kmsg"));
    std::filesystem::remove_all("/data/log");
    const KernelLog kernel;
    Daemon daemon("-b test", start.before, QUILCAT_FAULTY_DAEMON);
    const bool isStuck = start.before.find("FAULT") != std::string::npos;  // when title and row are done
    ASSERT_TRUE(WaitFor([&] { return isStuck ? daemon.HasReported("data fail!!\n") : daemon.IsClosable(); }));
    kernel.Write(KernelLog::Line(0));
    EXPECT_TRUE(WaitFor([&] { return kernel.IsDrained(); }, start.keeps ? 10 : 0.3) || !start.keeps);
    EXPECT_TRUE(!start.keeps || daemon.WaitUntilRunning());
    for (const std::string fd : {"0", "1", "2"}) {
      // Neither a log nor a watch has taken the place.
      const auto file = std::filesystem::read_symlink("/proc/" + std::to_string(daemon.pid()) + "/fd/" + fd).string();
      EXPECT_TRUE(file.find("/data") == std::string::npos && file.find("inotify") == std::string::npos) << file;
    }
    EXPECT_TRUE(!isStuck || WaitFor([&] { return daemon.HasReported("fault injected"); }));
    Shell("dd if=/dev/zero of=/tmp/errors oflag=nonblock 2> /dev/null || true");  // full, where it has a reader
    daemon.Signal(start.signal);
    EXPECT_EQ(daemon.Wait(8), start.signal) << daemon.Errors();
    EXPECT_EQ(daemon.HasReported("debug closelogcat by signal\n"), start.reports);
    const auto files = IndexedPaths("/data/log/t");
    ExpectConsecutive(KernelLog::Numbers(DecodeAll(files)), start.keeps);
    // Its collector came to its end; a busy machine may leave a slow one no time.
    EXPECT_TRUE(!start.keeps || isStuck || Sanitized() || Decode(files[0]).zeroTail == 0);
  }
}

TEST(Service, KeepsTheKernelLogInLittleMemory) {
  KernelLoad load;
  Daemon daemon("-b kmsglogcat");
  ASSERT_TRUE(daemon.WaitUntilRunning());
  EXPECT_EQ(daemon.Title() + ' ' + daemon.Proc("comm"), "kmsglogcat kmsglogcat\n");
  usleep(500000);
  const std::string status = daemon.Proc("status");
  EXPECT_NE(status.find("Umask:\t0022"), std::string::npos);
  // Sanitizers take memory of their own.
  EXPECT_TRUE(Sanitized() || std::stoi(status.substr(status.find("VmHWM:") + 6)) < 3500) << status;
  EXPECT_EQ(daemon.Close(), 12);
  ExpectConsecutive(KernelLog::Numbers(DecodeAll(IndexedPaths("/data/log/android_logs"))), 1000);
}

TEST(Service, PollsTheChargerNodesOnTheLittleCpus) {
  const std::string nodes = "/sys/class/kq_power/";
  WriteFile(nodes + "coul/coul_data/gaugelog_head", "soc  volt \n");
  WriteFile(nodes + "coul/coul_data/gaugelog", "93   4012 \n");
  WriteFile(nodes + "charger/charge_data/chargelog_head", "ibus\n");
  Daemon daemon("-b chargelogcat");
  ASSERT_TRUE(daemon.WaitUntilRunning());
  const auto text = [] { return DecodeAll(IndexedPaths("/data/log/charge-log")); };
  EXPECT_TRUE(WaitFor([&] {
    List("/data/log/charge-log");
    return text().find("4012 \n") != std::string::npos;
  }));
  // No more than CPUs 0 to 3.
  const std::string status = daemon.Proc("status");
  EXPECT_EQ(std::stoul(status.substr(status.find("Cpus_allowed:") + 13), nullptr, 16) & ~0xful, 0u);
  EXPECT_EQ(daemon.Close(), 12);
  EXPECT_EQ(text().substr(0, 39), "\nTime                   soc  volt ibus\n");
  EXPECT_EQ(text().substr(text().find(" > ")), " >  93   4012 \n");
  EXPECT_TRUE(daemon.HasReported("node_cat write data fail!!\n"));  // there is no chargelog
}

TEST(Service, AWorkerThatEndsLeavesTheServiceIdleUntilItIsClosed) {
  ConfigureStream("mmap", 0, 10, Group("monitor_node", "/data/log/t/cat", "/tmp/missing"));
  Daemon daemon("-b test");
  // Its collectors are gone: the file is cut.
  EXPECT_TRUE(WaitFor([] {
    const auto files = IndexedPaths("/data/log/t");
    return !files.empty() && std::filesystem::file_size(files[0]) == 0;
  }));
  EXPECT_EQ(daemon.Close(), 12);
}

TEST(Service, RegistersWithTheRebootWatchdog) {
  if (Sanitized()) GTEST_SKIP() << "sanitizers need a real /proc";
  ASSERT_EQ(mount("none", "/proc", "tmpfs", 0, nullptr), 0);
  WriteFile("/proc/reboot_watchdog", "");
  WriteFile("/proc/kmsg", "line\n");
  Daemon daemon("-b kmsglogcat");
  EXPECT_TRUE(WaitFor([&] { return ReadFile("/proc/reboot_watchdog") == std::to_string(daemon.pid()); }));
}

/// Killed, or closed.
class EndTest : public testing::TestWithParam<bool> {};

TEST_P(EndTest, KeepsWhatWasReadWheneverItComes) {
  const bool killed = GetParam();
  std::mt19937 random(1);
  const std::string output = "/data/log/t/cat";
  for (int round = 0; round < 2 * Rounds(30); ++round) {
    std::filesystem::remove_all("/data/log");
    const bool mapped = round % 2 == 0;
    const int signal = !killed ? SIGUSR2 : mapped ? SIGKILL : SIGUSR1;  // which no timer takes there
    SCOPED_TRACE((mapped ? "mmap " : "factory ") + std::to_string(round));
    ConfigureStream(mapped ? "mmap" : "factory", 16, mapped ? 1000 : 15);
    const bool isLarge = !killed && round % 8 == 1;  // packing takes half a minute
    if (isLarge) Shell("mkdir -p /data/log/t; truncate -s 3G /data/log/t/cat.4");
    std::string unread;
    bool wasSlow = false;  // a machine that stands still leaves a close no time to cut the file
    {
      KernelLoad load;
      const bool stalls = !killed && round < 2;  // the disk does, while a file is rotated, and the close comes then
      Daemon daemon("-b test",
                    stalls ? std::string("export QUILCAT_FAULT=") + (mapped ? "pwrite:17:3" : "fdatasync:1:3") : "",
                    QUILCAT_FAULTY_DAEMON);
      daemon.WaitUntilRunning();
      EXPECT_TRUE(!stalls || WaitFor([&] { return daemon.HasReported("fault injected"); }));
      usleep(static_cast<useconds_t>(random() % (killed ? 120000 : 40000)));
      const auto start = std::chrono::steady_clock::now();
      daemon.Signal(signal);
      EXPECT_EQ(daemon.Wait(), killed ? 1000 + signal : 12);
      wasSlow = std::chrono::steady_clock::now() - start > std::chrono::seconds(2);
      EXPECT_FALSE(daemon.HasReported("write fail"));
      unread = load.Unread();
    }
    if (isLarge) Shell("cd /data/log/t; truncate -cs 0 cat.4 cat.5; [ ! -d cat_tmp ] || truncate -cs 0 cat_tmp/cat.5");
    const auto readNumbers = [&] {
      std::string text = mapped ? "" : FactoryText(output);
      for (const std::string& path : IndexedPaths("/data/log/t")) text += Decode(path).text;
      return KernelLog::Numbers(text);
    };
    const std::vector<int> before = readNumbers();
    // A restart goes on by itself, takes nothing away, and packs what a close left no time for.
    EXPECT_TRUE((!killed && mapped) || Daemon("-b test").Close() == 12);
    const std::vector<std::string> files = IndexedPaths("/data/log/t");
    for (size_t i = 0; i < files.size(); ++i) {
      const Decoded decoded = Decode(files[i]);
      // The kill may have come while a member was copied into the last file of the first daemon.
      const bool isTorn = killed && i + 2 == files.size();
      EXPECT_TRUE(isTorn || (decoded.sound && (wasSlow || decoded.zeroTail == 0))) << files[i];
    }
    std::vector<int> numbers = readNumbers();
    const int first = mapped || numbers.empty() ? 0 : numbers[0];  // a new archive takes the oldest one's place
    EXPECT_TRUE(std::all_of(before.begin(), before.end(), [&](int number) {
      return number < first || std::find(numbers.begin(), numbers.end(), number) != numbers.end();
    }));
    // A plain file may end in the line that a kill broke off.
    if (killed && !mapped && !numbers.empty()) numbers.pop_back();
    ExpectConsecutive(numbers, 0, first);
    EXPECT_FALSE(std::filesystem::exists(output + ".5") || std::filesystem::exists(output + "_tmp"));
    // Of what was read before a close at most a line that had not ended is missing.
    const size_t lineEnd = unread.find('\n');
    if (killed || lineEnd == std::string::npos || unread.size() <= lineEnd + 6) continue;
    EXPECT_LE(atoi(unread.c_str() + lineEnd + 5) - (numbers.empty() ? 0 : numbers.back() + 1), 1);
  }
}

INSTANTIATE_TEST_SUITE_P(Service, EndTest, testing::Bool());
