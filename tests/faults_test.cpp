// What is left when things fail around the daemon: memory, descriptors, the disk, the clock, the process itself.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <random>

#include "device.h"

using namespace Device;

namespace {

constexpr char kDirectory[] = "/data/log/t";

/// Whole lines in order, none twice; some may be missing.
void ExpectOrdered(const std::string& text) {
  const std::vector<int> numbers = KernelLog::Numbers(text);
  for (size_t i = 0; i < numbers.size(); ++i) {
    ASSERT_NE(numbers[i], -1) << i << " of " << numbers.size();
    ASSERT_TRUE(i == 0 || numbers[i] > numbers[i - 1]) << numbers[i];
  }
}

std::string TextOfRun(const std::string& mode) {
  return mode == "mmap" ? DecodeAll(IndexedFiles(kDirectory)) : ReadFile(std::string(kDirectory) + "/cat");
}

}  // namespace

struct Fault {
  const char* call;
  const char* mode;
};

class FaultTest : public testing::TestWithParam<Fault> {};

/// The nth call fails, for each n up to the last one of start-up and of a while of running. The daemon lives, or idles
/// with its message, or skips its group; what it keeps are whole lines.
TEST_P(FaultTest, OneFailingCallNeverEndsTheDaemon) {
  ConfigureStream(GetParam().mode, 64, 100);
  bool struck = true;
  int lived = 0;
  for (int n = 1; struck && n <= 60; ++n) {
    std::filesystem::remove_all("/data/log");
    const KernelLog kernel;
    Daemon daemon({"-b", "test"}, {"QUILCAT_FAULT=" + std::string(GetParam().call) + ":" + std::to_string(n)},
                  QUILCAT_FAULTY_DAEMON);
    const auto idles = [&] { return daemon.Errors().find("parse_config_file failed") != std::string::npos; };
    ASSERT_TRUE(WaitFor([&] { return idles() || daemon.IsClosable(); })) << n << daemon.Errors();
    if (!idles()) {
      for (int i = 0; i < 1500; ++i) {
        kernel.Write(KernelLog::Line(i));
      }
      WaitFor([&] { return kernel.IsDrained(); }, 0.3);
      EXPECT_EQ(daemon.Close(), 12) << n << daemon.Errors();
      const std::string text = TextOfRun(GetParam().mode);
      ExpectOrdered(text);
      lived += text.empty() ? 0 : 1;
    }
    struck = daemon.Errors().find("fault injected") != std::string::npos;
  }
  EXPECT_FALSE(struck && std::string(GetParam().call) != "allocation");
  EXPECT_GT(lived, 0);
}

INSTANTIATE_TEST_SUITE_P(Calls, FaultTest,
                         testing::Values(Fault{"allocation", "mmap"}, Fault{"allocation", "factory"},
                                         Fault{"new", "mmap"}, Fault{"mmap", "mmap"}, Fault{"ftruncate", "mmap"},
                                         Fault{"pwrite", "mmap"}, Fault{"deflateInit", "mmap"}, Fault{"thread", "mmap"},
                                         Fault{"fork", "factory"}, Fault{"localtime", "factory"}),
                         [](const auto& fault) { return std::string(fault.param.call) + "_" + fault.param.mode; });

// Four serve the dynamic linker; what the daemon wants beyond them is refused at another place for each number.
TEST(Faults, FewDescriptors) {
  if (Sanitized()) {
    GTEST_SKIP() << "sanitizers open files of their own";
  }
  ConfigureStream("mmap", 8, 100);
  for (rlim_t descriptors = 4; descriptors < 10; ++descriptors) {
    std::filesystem::remove_all("/data/log");
    rlimit old;
    getrlimit(RLIMIT_NOFILE, &old);
    const KernelLog kernel;
    const rlimit few = {descriptors, old.rlim_max};
    Daemon daemon({"-b", "test"}, {}, QUILCAT_DAEMON, &few);
    ASSERT_TRUE(WaitFor(
        [&] { return daemon.IsClosable() || daemon.Errors().find("parse_config_file failed") != std::string::npos; }));
    kernel.Write(KernelLog::Line(1));
    daemon.Signal(SIGUSR2);
    const int status = daemon.Wait();
    EXPECT_TRUE(status == 12 || status == 1000 + SIGUSR2) << status << daemon.Errors();
    ExpectOrdered(DecodeAll(IndexedFiles(kDirectory)));
  }
}

TEST(Faults, TheOutputDirectoryGoesWhileLinesStream) {
  std::mt19937 random(4);
  for (const char* mode : {"mmap", "factory"}) {
    ConfigureStream(mode, 16, 50);
    const KernelLoad load;
    Daemon daemon({"-b", "test"});
    ASSERT_TRUE(daemon.WaitUntilRunning());
    for (int i = 0; i < Rounds(20); ++i) {
      usleep(static_cast<useconds_t>(random() % 20000));
      std::error_code error;  // the daemon may make it anew meanwhile
      std::filesystem::remove_all(i % 2 == 0 ? "/data/log" : kDirectory, error);
    }
    EXPECT_TRUE(WaitFor([] { return !List(kDirectory).empty(); }));
    usleep(50000);
    EXPECT_EQ(daemon.Close(), 12);
    EXPECT_EQ(OwnerAndMode(kDirectory), "root:system 775");
    if (std::string(mode) == "mmap") {
      const auto files = IndexedFiles(kDirectory);
      ASSERT_FALSE(files.empty());
      ExpectOrdered(DecodeAll(files));
    }
    std::filesystem::remove_all("/data/log");
  }
}

TEST(Faults, ThousandsOfForeignFilesStayAndSlowNothing) {
  for (int i = 0; i < 3000; ++i) {
    WriteFile("/data/log/t/foreign" + std::to_string(i) + ".gz", "");
  }
  ConfigureStream("mmap", 8, 5);
  const KernelLog kernel;
  Daemon daemon({"-b", "test"});
  ASSERT_TRUE(daemon.WaitUntilRunning());
  for (int i = 0; i < 2000; ++i) {
    ASSERT_TRUE(WaitFor([&] { return kernel.Write(KernelLog::Line(i)); }));
  }
  EXPECT_TRUE(WaitFor([&] { return kernel.IsDrained(); }, 5));
  EXPECT_EQ(daemon.Close(), 12);
  EXPECT_EQ(IndexedFiles(kDirectory).size(), 5u);
  EXPECT_EQ(List(kDirectory).size(), 3000u + 5 + 2);
}

/// Eight groups in both modes, rotations every few KB, directories opened all the time, SIGUSR2 at any moment.
TEST(Faults, EightGroupsCloseUnderStress) {
  std::mt19937 random(5);
  WriteFile("/tmp/node", "value\n");
  for (const char* mode : {"mmap", "factory"}) {
    std::string groups;
    for (int i = 0; i < 8; ++i) {
      groups += "<quilcatGroup><logStyle value='" + std::string(i < 2 ? "monitor_node" : "poll_node") +
                "' interval='0'/><outputFilePath value='/data/log/t" + std::to_string(i) +
                "/cat'/><inputNodeSet><dataPath value='" + (i < 2 ? "/proc/kmsg" : "/tmp/node") +
                "'/><title value='title'/></inputNodeSet></quilcatGroup>";
    }
    WriteFile(
        "/system/etc/quilcat_config.xml",
        "<c><quilcat name='test'><logRotateSizeKBytes value='4'/><maxCompressdFiles value='10'/><writeMode value='" +
            std::string(mode) + "'/>" + groups + "</quilcat></c>");
    for (int round = 0; round < Rounds(6); ++round) {
      const KernelLoad load;
      Daemon daemon({"-b", "test"});
      ASSERT_TRUE(daemon.WaitUntilRunning());
      const int openings = static_cast<int>(random() % 300);
      for (int i = 0; i < openings; ++i) {
        List("/data/log/t" + std::to_string(i % 8));
        usleep(500);
      }
      daemon.Signal(SIGUSR2);
      EXPECT_EQ(daemon.Wait(), 12) << daemon.Errors().substr(0, 2000);
    }
    for (int i = 0; i < 8 && std::string(mode) == "mmap"; ++i) {
      EXPECT_FALSE(DecodeAll(IndexedFiles("/data/log/t" + std::to_string(i))).empty());
    }
  }
}

/// A mistake in a configuration: they clean each other up, but neither empties the file that the other has mapped.
TEST(Faults, TwoCollectorsOfOneOutputLive) {
  ConfigureStream("mmap", 1, 50);
  const KernelLoad load;
  Daemon first({"-b", "test"});
  Daemon second({"-b", "test"});
  usleep(700000);
  EXPECT_EQ(first.Close(), 12);
  EXPECT_EQ(second.Close(), 12);
  DecodeAll(IndexedFiles(kDirectory));
}

TEST(Faults, DirectoryOpeningsLoseAndDelayNoLine) {
  ConfigureStream("mmap", 8, 1000);
  const KernelLog kernel;
  Daemon daemon({"-b", "test"});
  ASSERT_TRUE(daemon.WaitUntilRunning());
  int line = 0;
  for (int i = 0; i < 300; ++i) {
    for (int j = 0; j < 10; ++j) {
      ASSERT_TRUE(WaitFor([&] { return kernel.Write(KernelLog::Line(line)); }));
      ++line;
    }
    List(kDirectory);
  }
  EXPECT_TRUE(WaitFor([&] { return kernel.IsDrained(); }, 1));
  usleep(20000);
  List(kDirectory);
  EXPECT_TRUE(WaitFor([&] { return static_cast<int>(Lines(DecodeAll(IndexedFiles(kDirectory))).size()) == line; }, 1));
  EXPECT_EQ(daemon.Close(), 12);
  ExpectOrdered(DecodeAll(IndexedFiles(kDirectory)));
}
