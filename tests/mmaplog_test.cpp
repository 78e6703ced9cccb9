#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include "device.h"
#include "fault_injection.h"
#include "mmaplog/log_buffer.h"
#include "mmaplog/log_mmap.h"
#include "mmaplog/quil.h"
#include "mmaplog/segment_copy.h"

using namespace Device;

namespace {

constexpr char kPath[] = "/data/log";
constexpr size_t kSegment = 65536;

template <typename Writer>
bool Write(Writer& writer, const std::string& bytes) {
  return writer.Write(bytes.data(), bytes.size());
}

/// The file holds `bytes`, then zeros to the end of the segment; a segment that is full is followed by another.
void ExpectOpenFile(const std::string& bytes) {
  EXPECT_TRUE(ReadFile(kPath) == bytes + std::string(kSegment - bytes.size() % kSegment, '\0'));
}

/// The flush timer of the only writer in this process.
class Timer {
 public:
  Timer() {
    for (const std::string& name : List("/proc/self/fdinfo")) {
      if (ReadFile("/proc/self/fdinfo/" + name).find("it_value") != std::string::npos) fd = stoi(name);
    }
  }
  /// Seconds until it goes off, 0 when nothing wakes its thread.
  double Left() const {
    itimerspec left = {};
    EXPECT_EQ(timerfd_gettime(fd, &left), 0);
    return static_cast<double>(left.it_value.tv_sec) + static_cast<double>(left.it_value.tv_nsec) * 1e-9;
  }
  void GoOff() const {
    const itimerspec now = {{0, 0}, {0, 1}};
    EXPECT_EQ(timerfd_settime(fd, 0, &now, nullptr), 0);
  }

 private:
  int fd = -1;
};

}  // namespace

TEST(LogMmap, KeepsWhatWasWrittenAndRefusesAWriteWhole) {
  MountSmallDisk("/data", 200);  // room for three segments
  std::string all;
  const std::string errors = StandardErrorOf([&] {
    LogMmap file(kPath);
    const auto refuses = [&](const std::string& bytes) {
      EXPECT_FALSE(Write(file, bytes));
      ExpectOpenFile(all);
    };
    for (const size_t size : std::initializer_list<size_t>{65000, 536, 7, 65528, 1000}) {
      const std::string bytes = Noise(size, all.size());
      for (const auto& [call, n] : {std::pair("mmap", 1), {"ftruncate", 1}, {"pwrite", 1}, {"pwrite", 16}}) {
        if (all.size() % kSegment + size < kSegment) continue;  // needs no other segment
        const FailNthCall fault(call, n);
        refuses(bytes);
        EXPECT_TRUE(fault.happened());
      }
      EXPECT_TRUE(Write(file, bytes));
      all += bytes;
      ExpectOpenFile(all);
    }
    for (const size_t size : std::initializer_list<size_t>{0, 65536, 65537})
      refuses(Noise(size, 1));  // the disk is full
    EXPECT_FALSE(file.Write(nullptr, 1) || file.isOver());
  });
  EXPECT_EQ(errors, "failed mapping data\nfailed setting file size\nfailed mapping data\nfailed setting file size\n");
  EXPECT_TRUE(ReadFile(kPath) == all);
}

TEST(LogMmap, MakesANewFileOrNone) {
  WriteFile("/data/other", "other");
  ASSERT_EQ(symlink("other", kPath) + symlink("nothing", "/data/dangling"), 0);
  for (const char* path : {"/data/other", kPath, "/data/dangling", "/tmp/missing/log"}) {
    const std::string errors = StandardErrorOf([&] { EXPECT_FALSE(LogMmap(path).isMmapOpenSucc()) << path; });
    EXPECT_EQ(errors, "failed opening file\nfailed mmap file\n");
  }
  EXPECT_EQ(ReadFile("/data/other"), "other");
  EXPECT_EQ(List("/data"), (std::vector<std::string>{"dangling", "log", "other"}));
}

TEST(LogMmap, GivesUpAFileThatSomebodyElseCutsExtendsOrRemoves) {
  for (const off_t length : {0, 10, 65535, 200000, -1}) {
    unlink(kPath);
    {
      LogMmap file(kPath);
      EXPECT_TRUE(Write(file, Noise(5000, 1)));
      EXPECT_EQ(length < 0 ? unlink(kPath) : truncate(kPath, length), 0);
      EXPECT_FALSE(Write(file, "text")) << length;
      EXPECT_TRUE(file.isOver());
    }
    EXPECT_EQ(ReadFile(kPath).size(), static_cast<size_t>(std::max<off_t>(length, 0)));
  }
}

TEST(LogMmap, EndsAt2GiBAndLeavesTheBlockToTheNextFile) {
  LogMmap file(kPath), next("/tmp/next");
  LogBuffer buffer;
  const int hole = open(kPath, O_RDWR);
  off_t written = 0;
  for (const std::string bytes(kSegment, 'a'); Write(file, bytes); written += kSegment) {
    fallocate(hole, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, written);  // there is no memory for all of it
  }
  EXPECT_EQ(written, (off_t{1} << 31) - static_cast<off_t>(kSegment));
  buffer.SetupMap(&file);
  EXPECT_TRUE(Write(buffer, Noise(52429, 1)));
  buffer.SetupMap(&next);
  EXPECT_TRUE(buffer.Flush() && DecodeAll({"/tmp/next"}) == Noise(52429, 1));
  close(hole);
}

TEST(SegmentCopyDeathTest, OutlivesACutOffPageAndNoOtherSigbus) {
  const int fd = open("/tmp/empty", O_RDWR | O_CREAT, 0600);
  const auto map = [fd] { return static_cast<uint8_t*>(mmap(nullptr, kSegment, PROT_WRITE, MAP_SHARED, fd, 0)); };
  EXPECT_FALSE(openPages(map(), 5000, 5000));
  EXPECT_FALSE(copyToSegment(map(), 0, reinterpret_cast<const uint8_t*>(kPath), 1));
  if (Sanitized()) GTEST_SKIP() << "has a handler of its own";
  EXPECT_EXIT(*static_cast<volatile uint8_t*>(map()) = 1, testing::KilledBySignal(SIGBUS), "");
  EXPECT_EXIT(kill(getpid(), SIGBUS), testing::KilledBySignal(SIGBUS), "");
}

TEST(LogBuffer, CutsMembersAtTheThresholdAndByFlush) {
  LogMmap file(kPath);
  {
    LogBuffer buffer;
    buffer.SetupMap(&file);
    EXPECT_TRUE(Write(buffer, std::string(52428, 'a')));
    EXPECT_EQ(Decode(kPath).members, 0);
    EXPECT_TRUE(Write(buffer, std::string(13108, 'b')));  // fills the area to the last byte
    EXPECT_EQ(Decode(kPath).members, 1);
    EXPECT_TRUE(Write(buffer, "") && Write(buffer, std::string(50000, 'c')));
    const std::string errors = StandardErrorOf([&] { EXPECT_FALSE(Write(buffer, std::string(20000, 'd'))); });
    EXPECT_EQ(errors, "LogBuffer:write_to_out_buffer failed.\n");
    EXPECT_FALSE(buffer.Write(nullptr, 1));
    for (int i = 0; i < 2; ++i) buffer.Flush();
    EXPECT_EQ(Decode(kPath).members, 2);
    EXPECT_TRUE(Write(buffer, "end"));
  }
  EXPECT_EQ(Decode(kPath).members, 3);
  EXPECT_EQ(DecodeAll({kPath}), std::string(52428, 'a') + std::string(13108, 'b') + std::string(50000, 'c') + "end");
  // Level 9 says so in the header; no name, no time.
  EXPECT_EQ(ReadFile(kPath).substr(0, 10), std::string("\x1f\x8b\x08\0\0\0\0\0\x02\x03", 10));
}

TEST(LogBuffer, KeepsTextThatDoesNotShrinkAndWhatALostFileRefused) {
  const std::string block = Noise(52429, 1), large = Noise(65535, 2);  // one member, and two
  LogBuffer buffer;
  LogMmap first("/tmp/first"), second("/tmp/second");
  EXPECT_FALSE(Write(buffer, block));  // kept, but on no file
  EXPECT_FALSE(Write(buffer, block));  // no room: dropped
  buffer.SetupMap(&first);
  EXPECT_TRUE(Write(buffer, large) && Write(buffer, large));
  EXPECT_EQ(Decode("/tmp/first").members, 5);
  EXPECT_TRUE(DecodeAll({"/tmp/first"}) == block + large + large);
  ASSERT_EQ(truncate("/tmp/first", 0), 0);
  EXPECT_TRUE(Write(buffer, block));   // kept for another file
  EXPECT_FALSE(Write(buffer, large));  // no room: dropped
  buffer.SetupMap(&second);
  EXPECT_TRUE(Write(buffer, large));
  EXPECT_TRUE(DecodeAll({"/tmp/second"}) == block + large);
}

TEST(LogBuffer, TriesAgainForADeflateState) {
  LogMmap file(kPath);
  const auto withFailedSetUp = [&](bool writes) {
    return StandardErrorOf([&] {
      const FailNthCall fault("deflateInit", 1);
      LogBuffer buffer;
      buffer.SetupMap(&file);
      EXPECT_TRUE(!writes || Write(buffer, "text"));
    });
  };
  EXPECT_EQ(withFailedSetUp(false), "LogBuffer:deflateInit2 failed.\nLogBuffer:deflateEnd failed.\n");
  EXPECT_EQ(withFailedSetUp(true), "LogBuffer:deflateInit2 failed.\n");
  EXPECT_EQ(DecodeAll({kPath}), "text");
}

TEST(Quil, WakesForTextOnlyAndSyncsWhenItIsDue) {
  const FailNthCall syncs("sync", 1000);  // counts
  {
    Quil writer(60);
    const Timer timer;
    EXPECT_EQ(timer.Left(), 0);
    ASSERT_TRUE(writer.SetOutputPath("/tmp/first"));
    EXPECT_TRUE(Write(writer, "one"));
    EXPECT_NEAR(timer.Left(), 5, 0.5);
    timer.GoOff();
    EXPECT_TRUE(WaitFor([&] { return Decode("/tmp/first").text == "one" && syncs.count() == 1; }));
    EXPECT_EQ(timer.Left(), 0);
    EXPECT_TRUE(Write(writer, "two"));
    timer.GoOff();
    EXPECT_TRUE(WaitFor([&] { return Decode("/tmp/first").text == "onetwo" && timer.Left() > 0; }));
    EXPECT_NEAR(timer.Left(), 60, 2) << "too soon for the next sync";
    EXPECT_TRUE(Write(writer, "three"));
    EXPECT_NEAR(timer.Left(), 5, 0.5);
    writer.Flush();
    ASSERT_TRUE(writer.SetOutputPath("/tmp/second"));
    EXPECT_EQ(Decode("/tmp/first").text, "onetwothree");
    EXPECT_EQ(Decode("/tmp/first").zeroTail, 0u);
    EXPECT_TRUE(WaitFor([&] { return syncs.count() == 2; })) << "the finished file";
    EXPECT_TRUE(Write(writer, "four"));
  }
  EXPECT_EQ(syncs.count(), 4) << "the last file, with its first text and at its end";
  EXPECT_EQ(Decode("/tmp/second").text, "four");
  EXPECT_EQ(Decode("/tmp/second").zeroTail, 0u);
}

TEST(Quil, FlushesWhileASyncTakesLong) {
  Quil writer(1);
  const Timer timer;
  const FailNthCall sync("sync", 1, 60);
  ASSERT_TRUE(writer.SetOutputPath("/tmp/first"));
  for (const std::string text : {"a", "aa", "aaa"}) {
    EXPECT_TRUE(Write(writer, "a"));
    timer.GoOff();
    EXPECT_TRUE(WaitFor([&] { return Decode("/tmp/first").text == text && sync.happened(); }));
  }
}

TEST(Quil, OffersTextThatIsRefusedAgainThoughNoMoreComes) {
  Quil writer(0, true);
  const Timer timer;
  EXPECT_FALSE(writer.SetOutputPath("/none/file"));
  EXPECT_TRUE(Write(writer, "one"));
  timer.GoOff();
  EXPECT_TRUE(WaitFor([&] { return timer.Left() > 4; }));
}

TEST(Quil, LosesNothingBetweenWritersFlushesAndSwitches) {
  for (int round = 0; round < Rounds(20); ++round) {
    std::vector<std::string> paths;
    std::string all;
    {
      Quil writer;
      const Timer timer;
      const auto switchFile = [&] {
        paths.push_back("/tmp/" + std::to_string(round) + "." + std::to_string(paths.size()));
        writer.SetOutputPath(paths.back().c_str());
      };
      switchFile();
      std::atomic<bool> done{false};
      std::thread flusher([&] {
        for (; !done; timer.GoOff()) writer.Flush();
      });
      std::thread switcher([&] {
        for (; !done && paths.size() < 50; usleep(300)) switchFile();
      });
      for (int i = 0; i < 1000 * (round % 3); ++i) {
        const std::string line = std::to_string(i) + "\n";
        ASSERT_TRUE(Write(writer, line));
        all += line;
      }
      done = true;
      flusher.join();
      switcher.join();
    }
    EXPECT_EQ(DecodeAll(paths), all);
  }
}
