// What is left when things fail around the daemon: memory, descriptors, the disk, the clock, the process itself.

#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "device.h"

using namespace Device;

namespace {

const std::string kDirectory = "/data/log/t";

/// Whole lines in order, none twice; some may be missing.
void ExpectOrdered(const std::string& text) {
  int last = -1;
  for (const int number : KernelLog::Numbers(text)) {
    ASSERT_GT(number, last);
    last = number;
  }
}

}  // namespace

/// A kind of call and a write mode, "call_mode".
class FaultTest : public testing::TestWithParam<std::string> {};

/// The nth call fails, for each n up to the last one of start-up and of a while of running. The daemon lives, or idles
/// with its message, or skips its group; what it keeps are whole lines.
TEST_P(FaultTest, OneFailingCallNeverEndsTheDaemon) {
  const std::string call = GetParam().substr(0, GetParam().find('_'));
  const std::string mode = GetParam().substr(call.size() + 1);
  ConfigureStream(mode, 64, 100);
  bool struck = true;
  int lived = 0;
  for (int n = 1; struck && n <= 60; ++n) {
    std::filesystem::remove_all("/data/log");
    const KernelLog kernel;
    Daemon daemon("-b test", "export QUILCAT_FAULT=" + call + ":" + std::to_string(n), QUILCAT_FAULTY_DAEMON);
    const auto idles = [&] { return daemon.HasReported("parse_config_file failed"); };
    ASSERT_TRUE(WaitFor([&] { return idles() || daemon.IsClosable(); })) << n << daemon.Errors();
    if (!idles()) {
      for (int i = 0; i < 1500; ++i) kernel.Write(KernelLog::Line(i));
      WaitFor([&] { return kernel.IsDrained(); }, 0.3);
      EXPECT_EQ(daemon.Close(), 12) << n << daemon.Errors();
      const std::string text = mode == "mmap" ? DecodeAll(IndexedPaths(kDirectory)) : ReadFile(kDirectory + "/cat");
      ExpectOrdered(text);
      lived += text.empty() ? 0 : 1;
    }
    struck = daemon.HasReported("fault injected");
    EXPECT_TRUE(struck || n > 1) << "the daemon never makes this call";
  }
  EXPECT_TRUE(!struck || call == "allocation");
  EXPECT_GT(lived, 0);
}

INSTANTIATE_TEST_SUITE_P(Calls, FaultTest,
                         testing::Values("allocation_mmap", "allocation_factory", "new_mmap", "descriptor_mmap",
                                         "descriptor_factory", "mmap_mmap", "ftruncate_mmap", "pwrite_mmap",
                                         "deflateInit_mmap", "thread_mmap", "fork_factory", "localtime_factory"),
                         [](const auto& fault) { return fault.param; });

/// Eight groups in both modes, two of each output and so cleaning each other up by mistake; rotations every few KB,
/// directories opened and removed all the time, SIGUSR2 at any moment. What stands in a file stays readable.
TEST(Faults, GroupsUnderStressClose) {
  std::mt19937 random(5);
  WriteFile("/tmp/node", "value\n");
  const auto directory = [](int i) { return kDirectory + std::to_string(i % 4); };
  const auto text = [&](int i, bool mapped) {
    std::string found;
    for (const std::string& path : IndexedPaths(directory(i))) found += Decode(path).text;
    return mapped ? found : ReadFile(directory(i) + "/cat");
  };
  std::string groups;
  for (int i = 0; i < 8; ++i) {
    const bool streams = i % 4 == 0;
    groups +=
        Group(streams ? "monitor_node" : "poll_node", directory(i) + "/cat", streams ? "/proc/kmsg" : "/tmp/node");
  }
  for (int round = 0; round < 2 * Rounds(6); ++round) {
    const bool mapped = round % 2 == 0;
    ConfigureStream(mapped ? "mmap" : "factory", 4, 10, groups);
    KernelLoad load;
    Daemon daemon("-b test");
    ASSERT_TRUE(daemon.WaitUntilRunning()) << daemon.Wait(0);
    for (int i = static_cast<int>(random() % 300); i > 0; --i) {
      List(directory(i));
      std::error_code error;  // the daemon may make it anew meanwhile
      if (i % 20 == 0) std::filesystem::remove_all(i % 100 == 0 ? "/data/log" : directory(i / 20), error);
      usleep(500);
    }
    for (int i = 0; i < 4; ++i) {
      // What stands there may be a link only: its file was removed with the directory, and the link came behind it.
      ASSERT_TRUE(WaitFor([&] { return !text(i, mapped).empty(); }, 30)) << round << ' ' << i << daemon.Errors();
      EXPECT_TRUE(WaitFor([&] { return OwnerAndMode(directory(i)) == "root:system 775"; }));
    }
    daemon.Signal(SIGUSR2);
    EXPECT_EQ(daemon.Wait(), 12) << daemon.Errors().substr(0, 2000);
    for (int i = 0; i < 4 && mapped; ++i) EXPECT_FALSE(DecodeAll(IndexedPaths(directory(i))).empty());
  }
}
