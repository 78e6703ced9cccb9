#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "collect/monitor_dir.h"
#include "collect/quilcat.h"
#include "device.h"
#include "fault_injection.h"

using namespace Device;
using namespace QuilCommon;

namespace {

constexpr char kOutput[] = "/data/log/out";

/// Text of a configuration, which nobody writes to.
char* Text(const char* text) {
  return const_cast<char*>(text);
}

/// A collector in factory mode, so that what its readers write stands in a plain file.
class CollectTest : public testing::Test {
 protected:
  CollectTest() { group.output_file_path = Text(kOutput); }

  /// One whose worker is to set up its output.
  Quilcat& Make(type_write mode = WRITE_FACTORY) {
    collector.reset();
    std::filesystem::remove_all("/data/log");
    collector = std::make_unique<Quilcat>(&group, mode);
    return *collector;
  }
  Quilcat& MakeReady(type_write mode = WRITE_FACTORY) {
    Make(mode);
    StandardErrorOf([&] { collector->setupOutput(); });
    return *collector;
  }
  bool Stop() {
    collector->requestStop();
    return WaitFor([this] {
      collector->wake();
      return collector->hasEnded();
    });
  }
  /// What was written since the last call.
  std::string Written() {
    const std::string text = ReadFile(kOutput);
    std::filesystem::resize_file(kOutput, 0);
    return text;
  }

  /// Makes it a group of that style that reads the node at `path`.
  void Collect(type_style style, const char* path) {
    node.data_path = Text(path);
    group.style = style;
    group.input = &node;
  }

  QuilcatGroup_t group = {};
  QuilcatInputNodeSet_t node = {};
  std::unique_ptr<Quilcat> collector;
};

}  // namespace

TEST_F(CollectTest, GivesAColumnForWhatIsReadAndForWhatIsNot) {
  // A node's text, the width and the column.
  const std::tuple<std::string, size_t, std::string> cases[] = {
      {"42\n", 5, "42   "},
      {"42\n", 0, "42"},
      {"42\n", 1, "42"},
      {"\n", 0, "\n"},
      {"42\r\n", 0, "42\r"},
      {"42\r", 0, "42\r"},
      {"427", 4, "42  "},  // the last character goes, whatever it is
      {std::string("ab\0cd\n", 6), 0, "a"},
      {std::string(8191, 'x') + "yz\n", 0, std::string(8190, 'x') + "yz"},
      {"a\n", 9000, "a" + std::string(8190, ' ')},
      {"", 10, "Read Fail "},
  };
  Quilcat& readers = MakeReady();
  QuilcatStrList_t second = {Text("/tmp/node"), nullptr}, first = {Text("/tmp/missing"), &second};
  for (const auto& [text, width, column] : cases) {
    WriteFile("/tmp/node", text);
    EXPECT_EQ(readers.node_cat_once("/tmp/node", width, true), 0);
    EXPECT_EQ(Written(), column);
    EXPECT_EQ(readers.node_cat_alter_once(&first, width, true), 0);
    // One read only, and one of nothing is none that failed.
    EXPECT_EQ(Written(), text.empty() ? std::string(width, ' ') : column.substr(0, text.size() > 8191 ? 8190 : 8191));
  }
  QuilcatStrList_t nullEntry = {nullptr, &second}, directory = {Text("/tmp"), nullptr};  // opens but cannot be read
  EXPECT_EQ(readers.node_cat_once("/tmp/missing", 10, true), 0);
  EXPECT_EQ(readers.node_cat_alter_once(&nullEntry, 12, true), 0);
  EXPECT_EQ(readers.node_cat_alter_once(&directory, 13, true), 0);
  EXPECT_EQ(Written(), "Read Fail Read Fail   Read Fail    ");
  EXPECT_EQ(readers.node_cat_once("/tmp/missing", 0, true), 1);
  EXPECT_EQ(readers.node_cat_stream(nullptr), 1);
  EXPECT_EQ(readers.logcatWriteFixLenBuffer(nullptr, 10, true), 1);
  EXPECT_EQ(Written(), "");

  // A budget of 3 lets two more reads follow, a second apart; then it starts anew.
  group.failureRetry = 3;
  MakeReady();
  for (int round = 0; round < 2; ++round) {
    const auto start = ThreadBase::Clock::now();
    EXPECT_EQ(collector->node_cat_once("/tmp/node", 10, true), 1);
    EXPECT_NEAR(std::chrono::duration<double>(ThreadBase::Clock::now() - start).count(), 2, 0.5);
  }
  EXPECT_EQ(Written(), "");
}

TEST(Collect, DatesWithoutALocalTimeAreOf1900) {
  const FailNthCall fault("localtime", 1);
  const std::unique_ptr<char, decltype(&free)> stamp(Quilcat::nodePollingDateTime(), &free);
  EXPECT_STREQ(stamp.get(), "1900-01-00 00:00:00 > ");
}

TEST_F(CollectTest, AsksForAStopOfTheShellLogOnly) {
  const char shellLog[] = "/dev/cshell_log";
  const auto takeStop = [] {
    const std::string stopped = ReadFile("/dev/__properties__/ctl.stop");
    SetProperty("ctl.stop", "");
    return stopped;
  };
  MakeReady();
  for (const char* path : {"/tmp/missing", "/tmp"}) EXPECT_EQ(collector->node_cat_stream(path), 1);
  EXPECT_EQ(takeStop(), "");
  EXPECT_EQ(collector->node_cat_stream(shellLog), 1);
  EXPECT_EQ(takeStop(), "kmsgcat_cp");

  std::filesystem::create_directory(shellLog);  // opens, but its reads fail
  EXPECT_EQ(collector->node_cat_stream(shellLog), 1);
  EXPECT_EQ(takeStop(), "");
  group.failureRetry = 2;
  MakeReady();
  EXPECT_EQ(StandardErrorOf([&] { EXPECT_EQ(collector->node_cat_stream(shellLog), 1); }),
            "read failure!reserved_buf_size = 8191\n");
  EXPECT_EQ(takeStop(), "kmsgcat_cp");

  // A request to stop is no failed read and no used-up budget, nor a failed opening that waits for a writer.
  Collect(STYLE_MONITOR_NODE, shellLog);
  for (const char* next : {"rmdir /dev/cshell_log; mkfifo /dev/cshell_log", "true"}) {
    Make().start();
    usleep(50000);
    EXPECT_TRUE(Stop());
    EXPECT_EQ(takeStop(), "");
    Shell(next);
  }
}

TEST_F(CollectTest, AStopBreaksARowOffInsteadOfFillingIt) {
  ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
  QuilcatInputNodeSet_t third = {10, Text("/tmp/missing"), nullptr, nullptr, nullptr, nullptr};
  const std::pair<const char*, QuilcatInputNodeSet_t*> cases[] = {
      {"/tmp/fifo", &third}, {"/dev/zero", &third}, {"/dev/zero", nullptr}};
  for (const auto& [second, next] : cases) {
    QuilcatInputNodeSet_t columns[] = {
        {10, Text("/tmp/missing"), nullptr, nullptr, nullptr, &columns[1]},
        {10, Text(second), nullptr, nullptr, nullptr, next},
    };
    group.style = STYLE_POLL_NODE;
    group.input = columns;
    Make();
    const std::string errors = StandardErrorOf([&] {
      collector->start();
      EXPECT_TRUE(WaitFor([] { return ReadFile(kOutput).rfind("Read Fail", 0) == 0; }));  // columns go out as they come
      EXPECT_TRUE(Stop());
    });
    EXPECT_EQ(errors, "");
    const std::string text = ReadFile(kOutput);
    EXPECT_TRUE(text.rfind("Read Fail") == 0 && text.find('\n') == std::string::npos) << text.size();
  }
}

TEST_F(CollectTest, AStreamThatRetriesOutlivesAFullDisk) {
  const KernelLog kernel;
  Collect(STYLE_MONITOR_NODE, "/proc/kmsg");
  group.on_write_failure = WRITE_FAILURE_RETRY;
  const auto isDrained = [&kernel] { return kernel.IsDrained(); };
  for (int i = 0; i < 3 * Rounds(1); ++i) {
    const type_write mode = i % 3 == 1 ? WRITE_FACTORY : WRITE_MMAP;
    const bool isLate = i % 3 == 2;  // there is no directory, and a close as soon as there can be one
    const std::string obstacle = isLate ? "/data/late" : "/data/log/ballast";
    int fed = 0;
    const auto feedOne = [&] {
      return kernel.Write("<6>[" + std::to_string(fed) + "] " + Noise(3000, static_cast<size_t>(fed)) + "\n");
    };
    collector.reset();
    MountSmallDisk("/data/log", 500);
    WriteFile(obstacle, std::string(360 << 10, 'x'));
    group.output_file_path = Text(isLate ? "/data/late/out" : kOutput);
    StandardErrorOf([&] {
      collector = std::make_unique<Quilcat>(&group, mode);
      collector->start();
      while (WaitFor(feedOne, 1)) ++fed;  // text for the disk, for all buffers and for the node
      std::filesystem::remove(obstacle);
      fed += !isLate && WaitFor(isDrained) && feedOne() && WaitFor(isDrained);
      EXPECT_TRUE(Stop());
      collector.reset();
    });
    const std::string text =
        mode == WRITE_MMAP ? DecodeAll(IndexedPaths(isLate ? "/data/late" : "/data/log")) : FactoryText(kOutput);
    const std::string unread = kernel.ReadAll();
    int next = 0;
    for (size_t at = 0; (at = text.find("<6>[" + std::to_string(next) + "]", at)) != std::string::npos;) ++next;
    EXPECT_EQ(next, fed - std::count(unread.begin(), unread.end(), '\n'));  // all that were read to their end
    EXPECT_TRUE(isLate || text.find("quilcat: nothing could be written for ") != text.npos);
  }
}

TEST_F(CollectTest, PollsRowsUnderATitle) {
  WriteFile("/tmp/gauge", "42\n");
  ASSERT_EQ(mkfifo("/tmp/head", 0600), 0);
  QuilcatStrList_t alternatives = {Text("/tmp/gauge"), nullptr};
  // Width, data path, title path, title, alternative data paths.
  QuilcatInputNodeSet_t columns[] = {
      {5, Text("/tmp/gauge"), nullptr, nullptr, nullptr, &columns[1]},
      {23, Text("DateTime"), nullptr, Text("Time"), nullptr, &columns[2]},
      {4, nullptr, Text("/tmp/head"), nullptr, &alternatives, &columns[3]},
      {0, Text("CurrentTime or so"), nullptr, nullptr, nullptr, &columns[4]},
      {0, Text("/tmp/missing"), Text("/tmp/missing"), nullptr, nullptr, nullptr},
  };
  group.style = STYLE_POLL_NODE;
  group.polling_interval = 1000;
  group.input = columns;
  const std::string errors = StandardErrorOf([&] {
    Quilcat poller(&group, WRITE_FACTORY);
    poller.start();
    EXPECT_TRUE(WaitFor([] { return ReadFile(kOutput).size() > 20; }));  // it waits for the heading
    EXPECT_FALSE(poller.isSetUp());
    const FailNthCall counter("allocation", 1000);
    WriteFile("/tmp/head", "volt\n");
    EXPECT_TRUE(WaitFor([] { return Lines(ReadFile(kOutput)).size() == 5; }));
    EXPECT_EQ(counter.count(), 2);  // for its date texts only
  });
  EXPECT_NE(errors.find("write title fail!!\n"), std::string::npos);
  EXPECT_NE(errors.find("node_cat write data fail!!\n"), std::string::npos);

  std::string text = ReadFile(kOutput);
  // The title begins at the first column that has one.
  EXPECT_EQ(text.substr(0, 29), "\nTime" + std::string(19, ' ') + "volt\n");
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return isdigit(c) != 0; }, '9');
  EXPECT_EQ(text.substr(29, 47), "99   9999-99-99 99:99:99 >  99  \ncurrent time: ");
  EXPECT_EQ(text.substr(text.size() - 3), "\r\n\n");
}

TEST_F(CollectTest, StopsAWorkerWhereverItWaits) {
  ASSERT_EQ(mkfifo("/tmp/fifo", 0600), 0);
  WriteFile("/tmp/empty", "");
  group.polling_interval = 100;
  group.failureRetry = 100;
  node.width = 4;
  for (const char* path : {"/tmp/fifo", "/tmp/empty"}) {
    for (int i = 0; i < 40; ++i) {
      Collect(i < 20 ? STYLE_MONITOR_NODE : STYLE_POLL_NODE, path);
      Make(i % 2 == 0 ? WRITE_FACTORY : WRITE_MMAP).start();
      usleep(static_cast<useconds_t>(i % 20 * 100));
      EXPECT_TRUE(Stop());
    }
  }
  // Without an input, or with one of another style, it ends by itself.
  group.input = nullptr;
  for (const type_style style : {STYLE_NONE, STYLE_MONITOR_NODE, STYLE_MONITOR_DIR, STYLE_POLL_CMD}) {
    group.style = style;
    Make().start();
    EXPECT_TRUE(WaitFor([&] { return collector->hasEnded(); }));
  }
}

TEST_F(CollectTest, FlushesWhenADirectoryIsOpened) {
  group.style = STYLE_MONITOR_DIR;
  Quilcat& log = MakeReady(WRITE_MMAP);
  std::filesystem::create_directories(DMD_FOLDER);
  log.setupOutput();  // finds the shared directory now
  const auto newest = [] { return Decode(std::filesystem::read_symlink(kOutput)); };
  std::string all;
  const auto isFlushedByOpening = [&](const char* directory) {
    usleep(200000);  // what was opened before is past
    StandardErrorOf([&] { log.logcatWrite("line\n", 5, true); });
    usleep(100000);
    EXPECT_EQ(newest().text, all);  // opening a file flushes nothing
    all += "line\n";
    List(directory);
    return WaitFor([&] { return newest().text == all; }, 2);
  };
  EXPECT_TRUE(isFlushedByOpening("/data/log"));
  EXPECT_TRUE(isFlushedByOpening(DMD_FOLDER));
  // A burst of openings has few flushes.
  for (int i = 0; i < 100; ++i) {
    log.logcatWrite("burst\n", 6, true);
    List("/data/log");
    usleep(1000);
  }
  EXPECT_TRUE(WaitFor([&] { return newest().text.size() == all.size() + 600; }, 2));
  EXPECT_LT(newest().members, 20);
  // Nor has one of files, in turn as the kernel makes one event of the same ones, many looks.
  const auto start = ThreadBase::Clock::now();
  const FailNthCall looks("watch", 1000);
  for (int i = 0; i < 400; ++i) {
    WriteFile(i % 2 == 0 ? "/data/log/a" : "/data/log/b", "");
    usleep(50);
  }
  EXPECT_LE(looks.count(), (ThreadBase::Clock::now() - start) / std::chrono::milliseconds(5) + 2);
  // The directory is moved aside, and made anew: the watch follows, and leaves the old one.
  std::filesystem::rename("/data/log", "/data/aside");
  all = "";
  EXPECT_TRUE(isFlushedByOpening("/data/log"));
  EXPECT_EQ(Shell("cat /proc/$PPID/fdinfo/* 2> /dev/null | grep -c ^inotify"), "1\n");

  // A worker that waits for an hour, or for good, sets the file up again for what it has written.
  const KernelLog kernel;
  WriteFile("/tmp/node", "7\n");
  group.polling_interval = 3600;
  for (const char* path : {"/tmp/node", "/proc/kmsg"}) {
    collector.reset();
    Collect(path[1] == 't' ? STYLE_POLL_NODE : STYLE_MONITOR_NODE, path);
    Make(WRITE_MMAP);
    usleep(200000);
    collector->start();
    kernel.Write("7\n");
    usleep(200000);
    ASSERT_EQ(truncate(kOutput, 0), 0);
    EXPECT_TRUE(WaitFor([&] {
      List("/data/log");
      return Decode(IndexedPaths("/data/log").back()).text.find("7\n") != std::string::npos;
    }));
  }

  const FailNthCall fault("descriptor", 1);
  EXPECT_EQ(StandardErrorOf([&] { Make(WRITE_MMAP); }),
            "no inotify instance for /data/log: its logs are flushed by the timer only\n");
}
