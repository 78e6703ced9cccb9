// A process of group system, which may write in the log directories, tries to gain root's files.

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <filesystem>
#include <random>

#include "device.h"

using namespace Device;

namespace {

const std::string kDirectory = "/data/log/t";
const std::string kOutput = kDirectory + "/cat";
const std::string kTreasure = "/data/treasure";

/// Watches the log directory, and puts links, pipes, directories and files of its own where the daemon is about to
/// open, rename or pack; empties or lengthens what it has open. Most of what it tries fails.
class Intruder {
 public:
  explicit Intruder(unsigned seed) : random(seed), away(kDirectory + "/away-" + std::to_string(seed) + "-") {}

  [[noreturn]] void Run(time_t end) {
    if (setgroups(0, nullptr) != 0 || setresgid(1000, 1000, 1000) != 0 || setresuid(2000, 2000, 2000) != 0) _exit(1);
    umask(0);
    const int watch = inotify_init1(IN_NONBLOCK);
    inotify_add_watch(watch, kDirectory.c_str(), IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_OPEN);
    while (time(nullptr) < end) {
      pollfd events = {watch, POLLIN, 0};
      alignas(inotify_event) char text[4096];
      if (poll(&events, 1, 5) == 1 && read(watch, text, sizeof text) > 0) {
        const auto* event = reinterpret_cast<const inotify_event*>(text);
        if (event->len > 0) TakePlace(kDirectory + '/' + event->name);
      }
      TakePlace(kOutput + Pick({"", ".1", ".1", ".5", "_tmp", "_tmp", "-0.tar.gz", "-1.tar.gz"}));
    }
    _exit(0);
  }

 private:
  std::string Pick(const std::vector<std::string>& choices) { return choices[random() % choices.size()]; }
  std::string Target() {
    return kTreasure + Pick({"", "/secret", "/public", "/new", "/closed", "/closed/inner", "/closed/new"});
  }
  /// Empties or lengthens what is there, or puts something else in its place.
  void TakePlace(const std::string& path) {
    std::error_code error;
    const auto kind = random() % 12;
    if (kind < 2) std::filesystem::resize_file(path, kind << 20, error);
    if (kind < 2 && !error) return;
    MakeRoom(path);
    if (kind < 6) std::filesystem::create_symlink(Target(), path, error);
    if (kind == 6) std::filesystem::create_hard_link(kTreasure + "/public", path, error);
    if (kind == 7) close(open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY, 0666));
    if (kind == 8) mkfifo(path.c_str(), 0666);
    if (kind == 9) LayTrap(path);  // else the daemon gets on
  }
  void MakeRoom(const std::string& path) {
    std::error_code error;
    const std::string target = away + std::to_string(random() % 20);
    std::filesystem::remove_all(target, error);
    if (random() % 3 == 0) std::filesystem::remove(path, error);
    std::filesystem::rename(path, target, error);
  }
  /// A directory with links under all names that the daemon uses in its own.
  void LayTrap(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directory(path, error);
    for (const char* name : {"unfinished.tar.gz", "packed.tar.gz", "cat.1", "cat.2", "cat.3", "cat.4", "cat.5"}) {
      std::filesystem::create_symlink(Target(), path + '/' + name, error);
    }
  }

  std::mt19937 random;
  const std::string away;
};

}  // namespace

class IntruderTest : public testing::TestWithParam<const char*> {};

TEST_P(IntruderTest, GainsNothingOfRoots) {
  for (const char* name : {"/secret", "/public", "/closed/inner"}) WriteFile(kTreasure + name, "the secret of root\n");
  Shell("cd /data/treasure; chmod 600 secret closed/inner; chmod 700 closed");
  const auto treasure = [] {
    return Shell("cd /data/treasure; find . -printf '%p %m %U:%G %i %n %s %T@ %C@\\n'; cat secret public closed/*");
  };
  const std::string before = treasure();
  ConfigureStream(GetParam(), 2, 10, Group("monitor_node' onWriteFailure='retry", kOutput, "/proc/kmsg"));
  Daemon daemon("-b test");
  ASSERT_TRUE(daemon.WaitUntilRunning());
  const time_t end = time(nullptr) + Rounds(5);
  for (unsigned seed = 1; seed <= 2; ++seed) {
    if (fork() == 0) Intruder(seed).Run(end);
  }
  {
    KernelLoad load;
    EXPECT_TRUE(WaitFor([end] { return time(nullptr) > end; }, Rounds(5) + 2));
  }
  EXPECT_EQ(treasure(), before);
  EXPECT_EQ(Shell("find /data/log -type f -exec zgrep -l 'secret of root' {} + || true"), "");

  // With its things cleared away, lines reach the log again, and the daemon closes.
  Shell("rm -rf /data/log/t/*");
  const KernelLog kernel;
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(WaitFor([&] { return kernel.Write("<6>[" + std::to_string(i) + "] after\n") && kernel.IsDrained(); }));
    usleep(1100000);
  }
  EXPECT_EQ(daemon.Close(), 12) << daemon.Errors();
  const std::string text = GetParam() == std::string("mmap") ? DecodeAll(IndexedPaths(kDirectory)) : ReadFile(kOutput);
  EXPECT_NE(text.find("<6>[2] after\n"), std::string::npos) << text.size();
}

INSTANTIATE_TEST_SUITE_P(Modes, IntruderTest, testing::Values("mmap", "factory"));
