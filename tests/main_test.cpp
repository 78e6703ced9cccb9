// The daemon as a process, as init starts it and as a person looks at it.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <random>

#include "device.h"
#include "main/process_title.h"

using namespace Device;

namespace {

constexpr char kKernelDirectory[] = "/data/log/android_logs";
constexpr char kChargeDirectory[] = "/data/log/charge-log";
constexpr char kUsage[] =
    "Usage: " QUILCAT_DAEMON
    " [options] \noptions include:\n  -b <quilcat>      Trigger a pre-defined quilcat service <quilcat>\n";

/// The numbers 0 to count - 1 of a kernel log without gap, repetition or torn line.
void ExpectNumbers(const std::string& text, int count) {
  const std::vector<int> numbers = KernelLog::Numbers(text);
  EXPECT_EQ(static_cast<int>(numbers.size()), count);
  for (size_t i = 0; i < numbers.size(); ++i) ASSERT_EQ(numbers[i], static_cast<int>(i)) << Lines(text)[i];
}

/// Writes `count` numbered lines in chunks, and waits until the daemon has read them.
void Feed(const KernelLog& kernel, int count) {
  std::string chunk;
  for (int i = 0; i < count; ++i) {
    chunk += KernelLog::Line(i);
    if (chunk.size() > 3000 || i == count - 1) {
      ASSERT_TRUE(WaitFor([&] { return kernel.Write(chunk); }));
      chunk.clear();
    }
  }
  ASSERT_TRUE(WaitFor([&] { return kernel.IsDrained(); }));
}

}  // namespace

TEST(CommandLine, TellsHowItIsUsed) {
  struct Case {
    std::vector<std::string> arguments;
    int status;
    std::string errors;
  };
  const std::string unknown = "Main:Unrecognized Option\n";
  const std::string program = QUILCAT_DAEMON;
  const Case cases[] = {
      {{}, 0, kUsage},
      {{"--help"}, 0, kUsage},
      {{"-b"}, 0, kUsage},
      {{"-b", "a", "b"}, 0, kUsage},
      {{"-x", "y"}, 255, program + ": invalid option -- 'x'\n" + unknown + kUsage},
      {{"a", "-b"}, 255, program + ": option requires an argument -- 'b'\n" + unknown + kUsage},
  };
  for (const Case& example : cases) {
    Daemon daemon(example.arguments);
    EXPECT_EQ(daemon.Wait(), example.status);
    EXPECT_EQ(daemon.Errors(), example.errors);
  }
}

TEST(CommandLine, IdlesWithoutItsService) {
  for (const char* name : {"unknown", "kmsglogca", "kmsglogcatx", ""}) {
    Daemon daemon({"-b", name});
    EXPECT_TRUE(WaitFor([&] { return daemon.Errors() == "Main:parse_config_file failed, exit!!\n"; }));
    EXPECT_EQ(daemon.Title(), QUILCAT_DAEMON);
    daemon.Signal(SIGUSR2);
    EXPECT_EQ(daemon.Wait(), 1000 + SIGUSR2);  // no handler
  }
  // 300 characters are looked up by the first 255.
  const std::string name(255, 'n');
  WriteFile("/system/etc/quilcat_config.xml", "<c><quilcat name='" + name + "'/></c>");
  Daemon daemon({"-b", name + std::string(45, 'x')});
  EXPECT_TRUE(WaitFor([&] { return daemon.Errors().find("name              : " + name + "\n") != std::string::npos; }));
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

/// However it was started, and wherever a start hangs, it closes soon, and keeps what it has read.
TEST(Service, ClosesAfterAnyStart) {
  WriteFile("/tmp/bin/chown", "#!/bin/sh\nexec /bin/sleep 60\n");
  ASSERT_EQ(system("chmod +x /tmp/bin/chown; mkfifo /tmp/node /tmp/errors"), 0);
  const struct {
    std::string before;  ///< commands of a shell that then becomes the daemon
    const char* title;   ///< the node of the second group's title
    int signal;
    bool keeps, reports;
  } kCases[] = {
      {"", "/tmp", SIGTERM, true, true},
      {"exec 0<&- 1>&- 2>&-", "/tmp", SIGUSR2, true, false},
      {"exec 2>&-", "/tmp", SIGUSR2, true, false},
      {"true < /tmp/errors & exec 2> /tmp/errors", "/tmp", SIGUSR2, true, false},
      {"ulimit -f 32", "/tmp", SIGUSR2, false, true},
      {"", "/tmp/node", SIGUSR2, true, true},
      {"PATH=/tmp/bin", "/tmp", SIGUSR2, false, true},
  };
  for (const auto& start : kCases) {
    SCOPED_TRACE(start.before + ' ' + start.title);
    ConfigureStream("mmap", 0, 10);
    std::string xml = ReadFile("/system/etc/quilcat_config.xml");
    WriteFile(
        "/system/etc/quilcat_config.xml",
        xml.insert(xml.find("</quilcat>"),
                   "<quilcatGroup><logStyle value='poll_node' interval='9'/><outputFilePath value='/data/log/u/u'/>"
                   "<inputNodeSet><titlePath value='" +
                       std::string(start.title) + "'/><dataPath value='/tmp'/></inputNodeSet></quilcatGroup>"));
    std::filesystem::remove_all("/data/log");
    const KernelLog kernel;
    Daemon daemon({"-c", start.before + "\nexec " QUILCAT_DAEMON " -b test"}, {}, "/bin/sh");
    ASSERT_TRUE(WaitFor([&] { return daemon.IsClosable(); }));
    kernel.Write(KernelLog::Line(0));
    EXPECT_TRUE(WaitFor([&] { return kernel.IsDrained(); }, start.keeps ? 10 : 0.3) || !start.keeps);
    for (const std::string fd : {"0", "1", "2"}) {
      // Neither a log nor a watch has taken the place.
      const auto file = std::filesystem::read_symlink("/proc/" + std::to_string(daemon.pid()) + "/fd/" + fd).string();
      EXPECT_TRUE(file.find("/data") == std::string::npos && file.find("inotify") == std::string::npos) << file;
    }
    daemon.Signal(start.signal);
    EXPECT_EQ(daemon.Wait(8), start.signal) << daemon.Errors();
    EXPECT_EQ(daemon.Errors().find("debug closelogcat by signal\n") != std::string::npos, start.reports);
    ExpectNumbers(start.keeps ? DecodeAll(IndexedPaths("/data/log/t")) : "", start.keeps);
  }
}

TEST(Service, KeepsTheKernelLogAndClosesOnSigusr2) {
  const KernelLog kernel;
  Daemon daemon({"-b", "kmsglogcat"});
  ASSERT_TRUE(daemon.WaitUntilRunning());
  EXPECT_TRUE(WaitFor([&] { return daemon.Title() == "kmsglogcat"; }));
  EXPECT_EQ(ReadFile("/proc/" + std::to_string(daemon.pid()) + "/comm"), "kmsglogcat\n");
  Feed(kernel, 20000);
  const std::string status = ReadFile("/proc/" + std::to_string(daemon.pid()) + "/status");
  EXPECT_NE(status.find("Umask:\t0022"), std::string::npos);
  // Sanitizers take memory of their own.
  EXPECT_TRUE(Sanitized() || std::stoi(status.substr(status.find("VmHWM:") + 6)) < 5000);
  EXPECT_EQ(daemon.Close(), 12);
  EXPECT_NE(daemon.Errors().find("debug closelogcat by signal\n"), std::string::npos);
  const std::vector<std::string> files = IndexedPaths(kKernelDirectory);
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(Decode(files[0]).zeroTail, 0u);
  ExpectNumbers(DecodeAll(files), 20000);

  // The next start goes on with the next index.
  Daemon next({"-b", "kmsglogcat"});
  EXPECT_EQ(next.Close(), 12);
  EXPECT_EQ(IndexedPaths(kKernelDirectory).size(), 2u);
}

TEST(Service, PollsTheChargerNodesOnTheLittleCpus) {
  const std::string nodes = "/sys/class/kq_power/";
  WriteFile(nodes + "coul/coul_data/gaugelog_head", "soc  volt \n");
  WriteFile(nodes + "coul/coul_data/gaugelog", "93   4012 \n");
  WriteFile(nodes + "charger/charge_data/chargelog_head", "ibus\n");
  Daemon daemon({"-b", "chargelogcat"});
  ASSERT_TRUE(daemon.WaitUntilRunning());
  const auto text = [] { return DecodeAll(IndexedPaths(kChargeDirectory)); };
  EXPECT_TRUE(WaitFor([&] {
    List(kChargeDirectory);
    return text().find("4012 \n") != std::string::npos;
  }));
  // No more than CPUs 0 to 3.
  const std::string status = ReadFile("/proc/" + std::to_string(daemon.pid()) + "/status");
  EXPECT_EQ(std::stoul(status.substr(status.find("Cpus_allowed:") + 13), nullptr, 16) & ~0xful, 0u);
  EXPECT_EQ(daemon.Close(), 12);
  EXPECT_EQ(text().substr(0, 39), "\nTime                   soc  volt ibus\n");
  EXPECT_EQ(text().substr(text().find(" > ")), " >  93   4012 \n");
  EXPECT_NE(daemon.Errors().find("node_cat write data fail!!\n"), std::string::npos);  // there is no chargelog
}

TEST(Service, AWorkerThatEndsLeavesTheServiceIdleUntilItIsClosed) {
  WriteFile(
      "/system/etc/quilcat_config.xml",
      "<c><quilcat name='test'><quilcatGroup><logStyle value='poll_cmd'/><outputFilePath value='/data/log/t/cat'/>"
      "<inputCmdSet><command value='true'/></inputCmdSet></quilcatGroup></quilcat></c>");
  Daemon daemon({"-b", "test"});
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
  Daemon daemon({"-b", "kmsglogcat"});
  EXPECT_TRUE(WaitFor([&] { return ReadFile("/proc/reboot_watchdog") == std::to_string(daemon.pid()); }));
}

TEST(Service, ClosesUnderLoadAtAnyMomentWithoutLosingALine) {
  std::mt19937 random(1);
  for (const char* mode : {"mmap", "factory"}) {
    ConfigureStream(mode, strcmp(mode, "mmap") == 0 ? 8 : 0, 1000);
    for (int round = 0; round < Rounds(40); ++round) {
      std::filesystem::remove_all("/data/log");
      KernelLoad load;
      Daemon daemon({"-b", "test"});
      daemon.WaitUntilRunning();
      usleep(static_cast<useconds_t>(random() % 40000));
      daemon.Signal(SIGUSR2);
      EXPECT_EQ(daemon.Wait(), 12);
      EXPECT_NE(daemon.Errors().find("debug closelogcat by signal\n"), std::string::npos);
      EXPECT_EQ(daemon.Errors().find("write fail"), std::string::npos);
      const auto files = IndexedPaths("/data/log/t");
      const std::string text = files.empty() ? ReadFile("/data/log/t/cat") : DecodeAll(files);
      EXPECT_TRUE(files.empty() || Decode(files.back()).zeroTail == 0);
      ExpectNumbers(text, static_cast<int>(Lines(text).size()));
      // Of what was read at most a line that had not ended is missing.
      const std::string unread = load.Unread();
      const size_t lineEnd = unread.find('\n');
      if (lineEnd != std::string::npos && unread.size() > lineEnd + 6) {
        EXPECT_LE(atoi(unread.c_str() + lineEnd + 5) - static_cast<int>(Lines(text).size()), 1);
      }
    }
  }
}

TEST(Service, WhatAKilledDaemonWroteStaysReadable) {
  std::mt19937 random(2);
  for (int round = 0; round < Rounds(100); ++round) {
    std::filesystem::remove_all("/data/log");
    const bool mapped = round % 2 == 0;
    ConfigureStream(mapped ? "mmap" : "factory", 16, mapped ? 1000 : 15);
    {
      const KernelLoad load;
      Daemon daemon({"-b", "test"});
      daemon.WaitUntilRunning();
      usleep(static_cast<useconds_t>(random() % 120000));
      daemon.Signal(SIGKILL);
      daemon.Wait();
    }
    // A restart goes on by itself.
    Daemon next({"-b", "test"});
    EXPECT_EQ(next.Close(), 12);
    const std::string output = "/data/log/t/cat";
    std::string text = mapped ? "" : FactoryText(output);
    const std::vector<std::string> files = IndexedPaths("/data/log/t");
    for (size_t i = 0; i < files.size(); ++i) {
      const Decoded decoded = Decode(files[i]);
      // The kill may have come while a member was copied into the last file of the first daemon.
      EXPECT_TRUE(decoded.sound || i + 2 == files.size()) << files[i];
      text += decoded.text;
    }
    const std::vector<int> numbers = KernelLog::Numbers(text);
    // No gap, no repetition; a plain file may end in the line that the kill broke off.
    for (size_t i = 1; i + (mapped ? 0 : 1) < numbers.size(); ++i) ASSERT_EQ(numbers[i], numbers[i - 1] + 1) << round;
    EXPECT_FALSE(std::filesystem::exists(output + ".5"));
    EXPECT_TRUE(List(output + "_tmp").empty());
  }
}

TEST(Service, AFullDiskLeavesWhatWasKeptReadable) {
  const KernelLog kernel;
  ConfigureStream("mmap", 4096, 5);
  MountSmallDisk("/data/log/t", 300);
  Daemon daemon({"-b", "test"});
  ASSERT_TRUE(daemon.WaitUntilRunning());
  std::mt19937 random(3);
  for (int i = 0; i < 400; ++i) {
    std::string noise(2000, ' ');
    for (char& c : noise) c = static_cast<char>(33 + random() % 90);
    kernel.Write(noise + "\n");
    usleep(1000);
  }
  EXPECT_EQ(daemon.Close(), 12);
  const Decoded decoded = Decode(IndexedPaths("/data/log/t").back());
  EXPECT_TRUE(decoded.sound);
  EXPECT_GT(decoded.members, 2);
}
