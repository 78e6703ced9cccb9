#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

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
constexpr char kShellLog[] = "/dev/cshell_log";
constexpr char kFifo[] = "/tmp/fifo";

/// A collector in factory mode, so that what its readers write stands in a plain file.
class CollectTest : public testing::Test {
 protected:
  CollectTest() { group.output_file_path = const_cast<char*>(kOutput); }

  Quilcat& Make(type_write mode = WRITE_FACTORY) {
    collector.reset();
    std::filesystem::remove_all("/data/log");
    StandardErrorOf([&] { collector = std::make_unique<Quilcat>(&group, mode); });
    return *collector;
  }
  /// What was written since the last call.
  std::string Written() {
    const std::string text = ReadFile(kOutput);
    std::filesystem::resize_file(kOutput, 0);
    return text;
  }
  /// Streams `pieces`, each with a single read, and returns the lines without their clock prefix.
  std::vector<std::string> Stream(const std::vector<std::string>& pieces);

  QuilcatGroup_t group = {};
  std::unique_ptr<Quilcat> collector;
};

std::vector<std::string> CollectTest::Stream(const std::vector<std::string>& pieces) {
  std::filesystem::remove(kFifo);
  EXPECT_EQ(mkfifo(kFifo, 0600), 0);
  QuilcatInputNodeSet_t node = {};
  node.data_path = const_cast<char*>(kFifo);
  group.style = STYLE_MONITOR_NODE;
  group.input = &node;
  Make().start();
  const int fd = open(kFifo, O_RDWR | O_CLOEXEC);
  for (const std::string& piece : pieces) {
    EXPECT_EQ(write(fd, piece.data(), piece.size()), static_cast<ssize_t>(piece.size()));
    int unread = 1;
    EXPECT_TRUE(WaitFor([&] { return ioctl(fd, FIONREAD, &unread) == 0 && unread == 0; }));
  }
  collector.reset();
  close(fd);
  std::vector<std::string> lines = Lines(ReadFile(kOutput));
  for (std::string& line : lines) {
    EXPECT_EQ(line.size() > 18 ? line.substr(2, 1) + line[5] + line[8] + line[11] + line[14] + line[18] : "", "- ::. ")
        << line;
    line.erase(0, 19);
  }
  return lines;
}

}  // namespace

TEST_F(CollectTest, PadsAndCutsColumns) {
  struct Case {
    std::string content;
    size_t width;
    std::string column;
  };
  const Case cases[] = {
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
  };
  Quilcat& readers = Make();
  char path[] = "/tmp/node";
  char missing[] = "/tmp/missing";
  QuilcatStrList_t second = {path, nullptr};
  QuilcatStrList_t first = {missing, &second};
  for (const Case& example : cases) {
    WriteFile(path, example.content);
    EXPECT_EQ(readers.node_cat_once(path, example.width, true), 0);
    EXPECT_EQ(Written(), example.column);
    EXPECT_EQ(readers.node_cat_alter_once(&first, example.width, true), 0);
    EXPECT_EQ(Written(), example.column.substr(0, example.content.size() > 8191 ? 8190 : std::string::npos));
  }
  char text[] = "text";
  EXPECT_EQ(readers.logcatWriteFixLenBuffer(text, 6, false), 0);
  EXPECT_EQ(readers.logcatWriteFixLenBuffer(text, 0, true), 0);
  EXPECT_EQ(Written(), "text  text");
}

TEST_F(CollectTest, GivesAFailureColumnForWhatCannotBeRead) {
  Quilcat& readers = Make();
  char missing[] = "/tmp/missing";
  char empty[] = "/tmp/empty";
  char directory[] = "/tmp";  // opens but cannot be read
  WriteFile(empty, "");
  QuilcatStrList_t afterNull = {empty, nullptr};
  QuilcatStrList_t nullEntry = {nullptr, &afterNull};
  QuilcatStrList_t unreadable = {directory, nullptr};
  const char column[] = "Read Fail ";
  EXPECT_EQ(readers.node_cat_once(missing, 10, true), 0);
  EXPECT_EQ(Written(), column);
  EXPECT_EQ(readers.node_cat_once(empty, 10, true), 0);
  EXPECT_EQ(Written(), column);
  EXPECT_EQ(readers.node_cat_alter_once(&nullEntry, 10, true), 0);
  EXPECT_EQ(Written(), column);
  EXPECT_EQ(readers.node_cat_alter_once(&unreadable, 10, true), 0);
  EXPECT_EQ(Written(), column);
  EXPECT_EQ(readers.node_cat_alter_once(&afterNull, 3, true), 0);  // empty is readable here
  EXPECT_EQ(Written(), "   ");
  EXPECT_EQ(readers.node_cat_once(missing, 0, true), 1);
  EXPECT_EQ(readers.node_cat_once(nullptr, 10, true), 1);
  EXPECT_EQ(readers.node_cat_alter_once(nullptr, 10, true), 1);
  EXPECT_EQ(readers.node_cat_stream(nullptr), 1);
  EXPECT_EQ(readers.logcatWriteFixLenBuffer(nullptr, 10, true), 1);
  EXPECT_EQ(Written(), "");

  // A budget of 3 lets two more reads follow, a second apart; then it starts anew.
  group.failureRetry = 3;
  Make();
  for (int round = 0; round < 2; ++round) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(collector->node_cat_once(empty, 10, true), 1);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_NEAR(elapsed.count(), 2, 0.5);
  }
  EXPECT_EQ(Written(), "");
}

TEST_F(CollectTest, StreamsLinesHoweverTheyArrive) {
  const std::string full(8191, 'f');
  const std::string longest(8171, 'l');
  struct Case {
    std::vector<std::string> pieces;
    std::vector<std::string> lines;
  };
  const Case cases[] = {
      {{"x\ny", "z\n"}, {"x", "yz"}},
      {{"\n\na\n\n", "b", "c", "\n"}, {"a", "bc"}},
      {{"cr\r\n"}, {"cr\r"}},
      {{std::string("a\nb\0c\nd\n", 8), "e\n"}, {"a", "be"}},  // a zero byte ends what was read
      {{longest + "\n", "next\n"}, {longest, "next"}},
      {{"unfinished"}, {}},
  };
  for (const Case& example : cases) {
    EXPECT_EQ(Stream(example.pieces), example.lines);
  }
  // Longer lines lose their end and their line feed; a full buffer is a line.
  const std::string cut(8172, 'f');
  EXPECT_EQ(Stream({full.substr(0, 8190) + "\n"}), std::vector<std::string>{cut});
  const std::vector<std::string> pieces = Stream({full + full + "tail\n"});
  ASSERT_EQ(pieces.size(), 1u);  // no line feed between them
  EXPECT_EQ(pieces[0].size(), 3 * 8191 - 19 - (8191 - 4 - 19 - 1) - 1u);
}

TEST_F(CollectTest, StreamsWithoutAClockWhenThereIsNoLocalTime) {
  QuilcatInputNodeSet_t node = {};
  node.data_path = const_cast<char*>(kFifo);
  group.style = STYLE_MONITOR_NODE;
  group.input = &node;
  ASSERT_EQ(mkfifo(kFifo, 0600), 0);
  Make();
  const FailNthCall fault(FaultyCall::kLocalTime, 1);
  collector->start();
  const int fd = open(kFifo, O_RDWR | O_CLOEXEC);
  EXPECT_EQ(write(fd, "bare\n", 5), 5);
  EXPECT_TRUE(WaitFor([] { return ReadFile(kOutput) == "bare\n"; }));
  collector.reset();
  close(fd);
}

TEST_F(CollectTest, AsksForAStopOfTheShellLogOnly) {
  Make();
  EXPECT_EQ(collector->node_cat_stream("/tmp/missing"), 1);
  EXPECT_EQ(collector->node_cat_stream("/tmp"), 1);
  EXPECT_EQ(ReadFile("/dev/__properties__/ctl.stop"), "");
  EXPECT_EQ(collector->node_cat_stream(kShellLog), 1);
  EXPECT_EQ(ReadFile("/dev/__properties__/ctl.stop"), "kmsgcat_cp");

  SetProperty("ctl.stop", "");
  std::filesystem::create_directory(kShellLog);  // opens, but its reads fail
  EXPECT_EQ(collector->node_cat_stream(kShellLog), 1);
  EXPECT_EQ(ReadFile("/dev/__properties__/ctl.stop"), "");
  group.failureRetry = 2;
  Make();
  EXPECT_EQ(StandardErrorOf([&] { EXPECT_EQ(collector->node_cat_stream(kShellLog), 1); }),
            "read failure!reserved_buf_size = 8191\n");
  EXPECT_EQ(ReadFile("/dev/__properties__/ctl.stop"), "kmsgcat_cp");
}

TEST_F(CollectTest, PollsRowsUnderATitle) {
  WriteFile("/tmp/gauge", "42\n");
  WriteFile("/tmp/head", "volt\n");
  char gauge[] = "/tmp/gauge";
  char head[] = "/tmp/head";
  char dateTime[] = "DateTime";
  char currentTime[] = "CurrentTime or so";
  char time[] = "Time";
  char missing[] = "/tmp/missing";
  QuilcatStrList_t alternatives = {gauge, nullptr};
  QuilcatInputNodeSet_t last = {0, missing, missing, nullptr, nullptr, nullptr};
  QuilcatInputNodeSet_t current = {0, currentTime, nullptr, nullptr, nullptr, &last};
  QuilcatInputNodeSet_t alternative = {4, nullptr, head, nullptr, &alternatives, &current};
  QuilcatInputNodeSet_t date = {23, dateTime, nullptr, time, nullptr, &alternative};
  QuilcatInputNodeSet_t first = {5, gauge, nullptr, nullptr, nullptr, &date};
  group.style = STYLE_POLL_NODE;
  group.polling_interval = 1000;
  group.input = &first;

  testing::internal::CaptureStderr();
  Quilcat poller(&group, WRITE_FACTORY);
  poller.start();
  EXPECT_TRUE(WaitFor([] { return Lines(ReadFile(kOutput)).size() == 5; }));
  EXPECT_TRUE(poller.stop(ThreadBase::Clock::now() + std::chrono::seconds(5)));
  const std::string errors = testing::internal::GetCapturedStderr();
  EXPECT_NE(errors.find("write title fail!!\n"), std::string::npos);
  EXPECT_NE(errors.find("node_cat write data fail!!\n"), std::string::npos);

  std::string text = ReadFile(kOutput);
  // The title begins at the first column that has one.
  EXPECT_EQ(text.substr(0, 29), "\nTime" + std::string(19, ' ') + "volt\n");
  for (char& c : text) {
    c = isdigit(static_cast<unsigned char>(c)) ? '9' : c;
  }
  EXPECT_EQ(text.substr(29, 32), "99   9999-99-99 99:99:99 >  99  ");
  EXPECT_EQ(text.substr(61, 15), "\ncurrent time: ");
  EXPECT_EQ(text.substr(text.size() - 3), "\r\n\n");
}

TEST_F(CollectTest, APollCycleAllocatesItsDateTextsOnly) {
  WriteFile("/tmp/gauge", "42\n");
  char gauge[] = "/tmp/gauge";
  char dateTime[] = "DateTime";
  QuilcatInputNodeSet_t second = {5, gauge, nullptr, nullptr, nullptr, nullptr};
  QuilcatInputNodeSet_t date = {23, dateTime, nullptr, nullptr, nullptr, &second};
  group.style = STYLE_POLL_NODE;
  group.input = &date;
  Make();
  const FailNthAllocation counter(1'000'000'000);
  collector->start();
  EXPECT_TRUE(WaitFor([] { return ReadFile(kOutput).size() > 10000; }));
  EXPECT_TRUE(collector->stop(ThreadBase::Clock::now() + std::chrono::seconds(5)));
  EXPECT_EQ(counter.count(), static_cast<int>(Lines(ReadFile(kOutput)).size()));
}

TEST_F(CollectTest, StampsAFailedClockAsTheStartOf1900) {
  const FailNthCall fault(FaultyCall::kLocalTime, 1);
  const std::unique_ptr<char, decltype(&free)> stamp(Quilcat::nodePollingDateTime(), &free);
  EXPECT_STREQ(stamp.get(), "1900-01-00 00:00:00 > ");
}

TEST_F(CollectTest, OtherStylesEndAtOnce) {
  for (const uint32_t style : {STYLE_NONE, STYLE_MONITOR_NODE, STYLE_MONITOR_DIR, STYLE_POLL_CMD}) {
    group.style = style;
    Make().start();
    EXPECT_TRUE(WaitFor([&] { return collector->hasEnded(); }));
    EXPECT_EQ(ReadFile(kOutput), "");
  }
}

TEST_F(CollectTest, StopsAWorkerWhereverItWaits) {
  ASSERT_EQ(mkfifo(kFifo, 0600), 0);
  char fifo[] = "/tmp/fifo";
  char empty[] = "/tmp/empty";
  WriteFile(empty, "");
  for (const auto& [path, style] : {std::pair{fifo, STYLE_MONITOR_NODE}, std::pair{fifo, STYLE_POLL_NODE},
                                    std::pair{empty, STYLE_MONITOR_NODE}, std::pair{empty, STYLE_POLL_NODE}}) {
    QuilcatInputNodeSet_t node = {4, path, nullptr, nullptr, nullptr, nullptr};
    group.style = style;
    group.input = &node;
    group.polling_interval = 100;
    group.failureRetry = 100;
    for (int i = 0; i < 20; ++i) {
      Make(i % 2 == 0 ? WRITE_FACTORY : WRITE_MMAP).start();
      usleep(static_cast<useconds_t>(i * 100));
      EXPECT_TRUE(collector->stop(ThreadBase::Clock::now() + std::chrono::seconds(2)));
    }
  }
}

TEST_F(CollectTest, FlushesWhenADirectoryIsOpened) {
  std::filesystem::create_directories(DMD_FOLDER);
  group.style = STYLE_MONITOR_DIR;
  const auto decoded = [] { return DecodeAll({std::filesystem::read_symlink(kOutput)}); };
  Quilcat& log = Make(WRITE_MMAP);
  std::filesystem::create_directories(DMD_FOLDER);
  ASSERT_TRUE(log.start());
  log.setupOutput();  // finds the shared directory now
  std::string expected = "settled\n";
  log.logcatWrite(expected.data(), expected.size(), true);
  List("/data/log");
  EXPECT_TRUE(WaitFor([&] { return decoded() == expected; }, 2));
  usleep(200000);  // what the set-up itself opened is past
  for (const char* directory : {"/data/log", DMD_FOLDER}) {
    const std::string line = std::string(directory) + "\n";
    EXPECT_EQ(log.logcatWrite(line.data(), line.size(), true), 0);
    usleep(100000);
    EXPECT_EQ(decoded(), expected);  // opening a file flushes nothing
    List(directory);
    expected += line;
    EXPECT_TRUE(WaitFor([&] { return decoded() == expected; }, 2)) << directory;
  }
  // The directory is made anew: the watch follows.
  std::filesystem::remove_all("/data/log");
  StandardErrorOf([&] { log.logcatWrite("new\n", 4, true); });
  usleep(100000);
  List("/data/log");
  EXPECT_TRUE(WaitFor([&] { return decoded() == "new\n"; }, 2));
}
