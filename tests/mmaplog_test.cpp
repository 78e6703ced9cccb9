#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <atomic>
#include <memory>
#include <random>
#include <thread>

#include "device.h"
#include "fault_injection.h"
#include "mmaplog/log_buffer.h"
#include "mmaplog/log_mmap.h"
#include "mmaplog/quil.h"

using namespace Device;

namespace {

constexpr char kPath[] = "/tmp/log";
constexpr size_t kSegment = 65536;

std::string Noise(size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::string bytes(size, '\0');
  for (char& byte : bytes) {
    byte = static_cast<char>(random());
  }
  return bytes;
}

bool Write(LogMmap& file, const std::string& bytes) {
  return file.Write(bytes.data(), bytes.size());
}

/// The file holds `bytes`, then zeros up to `segments` whole segments.
void ExpectOpenFile(const std::string& bytes, size_t segments) {
  const std::string content = ReadFile(kPath);
  EXPECT_EQ(content.size(), segments * kSegment);
  EXPECT_EQ(content, bytes + std::string(segments * kSegment - bytes.size(), '\0'));
}

}  // namespace

TEST(LogMmap, KeepsWhatWasWrittenWhereverWritesMeetSegments) {
  const std::vector<std::vector<size_t>> cases = {
      {}, {100}, {65536}, {65536, 1}, {65535, 1}, {65535, 1, 65536, 65536}, {65000, 1000}, {65000, 536, 7}, {1, 65536}};
  for (const auto& sizes : cases) {
    std::string all;
    {
      LogMmap file(kPath);
      ASSERT_TRUE(file.isMmapOpenSucc());
      for (const size_t size : sizes) {
        const std::string bytes = Noise(size, static_cast<unsigned>(all.size() + 1));
        ASSERT_TRUE(Write(file, bytes));
        all += bytes;
        // A full segment is followed by a fresh one at once.
        ExpectOpenFile(all, all.size() / kSegment + 1);
      }
      EXPECT_FALSE(file.Write("x", 0));
      EXPECT_FALSE(file.Write(all.data(), kSegment + 1));
      EXPECT_FALSE(file.Write(nullptr, 1));
    }
    EXPECT_EQ(ReadFile(kPath), all);
  }
}

TEST(LogMmap, ReportsAPathThatCannotBeOpened) {
  const std::string errors = StandardErrorOf([] {
    LogMmap file("/tmp/missing/log");
    EXPECT_FALSE(file.isMmapOpenSucc());
    EXPECT_FALSE(file.Write("x", 1));
  });
  EXPECT_EQ(errors, "failed opening file\nfailed mmap file\n");
}

TEST(LogMmap, RefusesAWriteWholeWhenTheNextSegmentIsNotToBeHad) {
  const std::string first = Noise(65000, 1);
  const std::string second = Noise(1000, 2);
  for (const FaultyCall call : {FaultyCall::kMmap, FaultyCall::kFtruncate, FaultyCall::kPwrite}) {
    {
      LogMmap file(kPath);
      ASSERT_TRUE(Write(file, first));
      testing::internal::CaptureStderr();
      {
        const FailNthCall fault(call, 1);
        EXPECT_FALSE(Write(file, second));
        EXPECT_TRUE(fault.happened());
      }
      const std::string errors = testing::internal::GetCapturedStderr();
      EXPECT_EQ(errors, call == FaultyCall::kMmap        ? "failed mapping data\n"
                        : call == FaultyCall::kFtruncate ? "failed setting file size\n"
                                                         : "");
      ExpectOpenFile(first, 1);
      EXPECT_TRUE(Write(file, second));
    }
    EXPECT_EQ(ReadFile(kPath), first + second);
  }
}

TEST(LogMmap, AFullDiskRefusesWritesUntilThereIsRoomAgain) {
  MountSmallDisk("/data", 200);
  WriteFile("/data/ballast", std::string(80 * 1024, 'b'));
  std::string all;
  {
    LogMmap file("/data/log");
    while (all.size() < 10 * kSegment && Write(file, Noise(5000, static_cast<unsigned>(all.size())))) {
      all += Noise(5000, static_cast<unsigned>(all.size()));
    }
    EXPECT_EQ(all.size(), 65000u);
    unlink("/data/ballast");
    ASSERT_TRUE(Write(file, Noise(5000, 9)));
    all += Noise(5000, 9);
  }
  EXPECT_EQ(ReadFile("/data/log"), all);
}

TEST(LogBuffer, CutsMembersAtTheThresholdAndByFlush) {
  std::string all;
  const auto write = [&all](LogBuffer& buffer, size_t size, char fill) {
    const std::string text(size, fill);
    all += text;
    return buffer.Write(text.data(), text.size());
  };
  LogMmap file(kPath);
  {
    LogBuffer buffer;
    buffer.SetupMap(&file);
    EXPECT_TRUE(write(buffer, 52428, 'a'));
    EXPECT_EQ(Decode(kPath).members, 0);
    EXPECT_TRUE(write(buffer, 13108, 'b'));  // fills the area to the last byte
    EXPECT_EQ(Decode(kPath).members, 1);
    EXPECT_TRUE(write(buffer, 0, 'c'));
    EXPECT_TRUE(write(buffer, 50000, 'd'));
    const std::string tooMuch(20000, 'e');
    EXPECT_EQ(StandardErrorOf([&] { EXPECT_FALSE(buffer.Write(tooMuch.data(), tooMuch.size())); }),
              "LogBuffer:write_to_out_buffer failed.\n");
    EXPECT_FALSE(buffer.Write(nullptr, 1));
    buffer.Flush();
    buffer.Flush();
    EXPECT_EQ(Decode(kPath).members, 2);
    EXPECT_TRUE(write(buffer, 10, 'f'));
  }
  const Decoded decoded = Decode(kPath);
  EXPECT_TRUE(decoded.sound);
  EXPECT_EQ(decoded.members, 3);
  EXPECT_EQ(decoded.text, all);
  // Level 9 says so in the header; no name, no time.
  EXPECT_EQ(ReadFile(kPath).substr(0, 10), std::string("\x1f\x8b\x08\0\0\0\0\0\x02\x03", 10));
}

TEST(LogBuffer, SplitsABlockThatDoesNotShrink) {
  LogMmap file(kPath);
  std::string all;
  LogBuffer buffer;
  buffer.SetupMap(&file);
  for (unsigned i = 0; i < 10; ++i) {
    // 52428 and 13108 bytes of noise fill the area: their compressed form is larger.
    for (const size_t size : {size_t{13107}, size_t{13107}, size_t{13107}, size_t{13107}, size_t{13108}}) {
      const std::string noise = Noise(size, static_cast<unsigned>(all.size()));
      ASSERT_TRUE(buffer.Write(noise.data(), size));
      all += noise;
    }
  }
  const Decoded decoded = Decode(kPath);
  EXPECT_TRUE(decoded.sound);
  EXPECT_EQ(decoded.members, 20);
  EXPECT_EQ(decoded.text, all);
}

TEST(LogBuffer, KeepsBlocksThatFitUntilThereIsAFile) {
  LogBuffer buffer;
  const std::string noise = Noise(52429, 1);
  EXPECT_FALSE(buffer.Write(noise.data(), noise.size()));  // kept, but on no file
  EXPECT_FALSE(buffer.Write(noise.data(), noise.size()));  // no room: dropped
  LogMmap file(kPath);
  buffer.SetupMap(&file);
  EXPECT_TRUE(buffer.Write("tail", 4));
  buffer.Flush();
  EXPECT_EQ(Decode(kPath).text, noise + "tail");
}

TEST(LogBuffer, KeepsNothingWithoutADeflateState) {
  LogMmap file(kPath);
  {
    std::unique_ptr<LogBuffer> buffer;
    const FailNthCall fault(FaultyCall::kDeflateInit, 1);
    EXPECT_EQ(StandardErrorOf([&] { buffer = std::make_unique<LogBuffer>(); }), "LogBuffer:deflateInit2 failed.\n");
    buffer->SetupMap(&file);
    EXPECT_FALSE(buffer->Write("text", 4));
  }
  EXPECT_EQ(Decode(kPath).members, 0);
}

TEST(Quil, TheTimerBringsQuietTextToTheFile) {
  Quil writer;
  ASSERT_TRUE(writer.SetOutputPath(kPath));
  EXPECT_TRUE(writer.Write("quiet\n", 6));
  EXPECT_TRUE(WaitFor([] { return Decode(kPath).text == "quiet\n"; }, 8));
}

TEST(Quil, EachFileEndsWithTheTextWrittenBeforeTheSwitch) {
  {
    Quil writer;
    EXPECT_FALSE(writer.SetOutputPath("/tmp/missing/log"));
    ASSERT_TRUE(writer.SetOutputPath("/tmp/first"));
    writer.Write("one", 3);
    writer.Flush();
    ASSERT_TRUE(writer.SetOutputPath("/tmp/second"));
    EXPECT_EQ(Decode("/tmp/first").zeroTail, 0u);
    writer.Write("two", 3);
  }
  EXPECT_EQ(Decode("/tmp/first").text, "one");
  EXPECT_EQ(Decode("/tmp/second").text, "two");
  EXPECT_EQ(Decode("/tmp/second").zeroTail, 0u);
}

TEST(Quil, LosesNothingBetweenWritersFlushesAndSwitches) {
  constexpr int kLines = 3000;
  std::vector<std::string> paths;
  {
    Quil writer;
    paths.push_back("/tmp/part0");
    writer.SetOutputPath(paths.back().c_str());
    std::atomic<bool> done{false};
    std::thread flusher([&] {
      while (!done) {
        writer.Flush();
      }
    });
    std::thread switcher([&] {
      while (!done && paths.size() < 50) {
        paths.push_back("/tmp/part" + std::to_string(paths.size()));
        writer.SetOutputPath(paths.back().c_str());
        usleep(1000);
      }
    });
    for (int i = 0; i < kLines; ++i) {
      const std::string line = std::to_string(i) + "\n";
      ASSERT_TRUE(writer.Write(line.data(), line.size()));
    }
    done = true;
    flusher.join();
    switcher.join();
  }
  std::string expected;
  for (int i = 0; i < kLines; ++i) {
    expected += std::to_string(i) + "\n";
  }
  EXPECT_EQ(DecodeAll(paths), expected);
}

TEST(Quil, EndsItsTimerAtAnyMoment) {
  for (int i = 0; i < Rounds(300); ++i) {
    Quil writer;
    writer.SetOutputPath(kPath);
    writer.Write("text", 4);
    usleep(static_cast<useconds_t>(i % 7 * 100));
  }
  EXPECT_EQ(Decode(kPath).text, "text");
}
