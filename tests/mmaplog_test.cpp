#include <gtest/gtest.h>

#include <random>

#include "device.h"
#include "fault_injection.h"
#include "mmaplog/log_buffer.h"
#include "mmaplog/log_mmap.h"
#include "mmaplog/quil.h"

using namespace Device;

namespace {

constexpr char kPath[] = "/data/log";
constexpr size_t kSegment = 65536;

/// Bytes that do not compress.
std::string Noise(size_t size, size_t seed) {
  std::mt19937 random(static_cast<unsigned>(seed));
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

template <typename Writer>
bool Write(Writer& writer, const std::string& bytes) {
  return writer.Write(bytes.data(), bytes.size());
}

/// The file holds `bytes`, then zeros up to `segments` whole segments.
void ExpectOpenFile(const std::string& bytes, size_t segments) {
  EXPECT_EQ(ReadFile(kPath), bytes + std::string(segments * kSegment - bytes.size(), '\0'));
}

}  // namespace

TEST(LogMmap, KeepsWhatWasWrittenWhereverWritesMeetSegments) {
  const std::vector<size_t> cases[] = {{}, {65536, 65536}, {65000, 536, 7, 65536, 1000}};
  for (const auto& sizes : cases) {
    std::string all;
    {
      LogMmap file(kPath);
      ASSERT_TRUE(file.isMmapOpenSucc());
      for (const size_t size : sizes) {
        const std::string bytes = Noise(size, all.size());
        ASSERT_TRUE(Write(file, bytes));
        all += bytes;
        // A full segment is followed by a fresh one at once.
        ExpectOpenFile(all, all.size() / kSegment + 1);
      }
      EXPECT_FALSE(Write(file, ""));
      EXPECT_FALSE(Write(file, std::string(kSegment + 1, 'x')));
      EXPECT_FALSE(file.Write(nullptr, 1));
    }
    EXPECT_EQ(ReadFile(kPath), all);
  }
}

TEST(LogMmap, RefusesAWriteWholeWhenTheNextSegmentIsNotToBeHad) {
  MountSmallDisk("/data", 200);
  WriteFile("/data/ballast", std::string(80 * 1024, 'b'));  // leaves room for one segment and a part of another
  const std::string first = Noise(65000, 1), second = Noise(1000, 2);
  {
    LogMmap file(kPath);
    ASSERT_TRUE(Write(file, first));
    const std::string errors = StandardErrorOf([&] {
      for (const FaultyCall call : {FaultyCall::kMmap, FaultyCall::kFtruncate}) {
        const FailNthCall fault(call, 1);
        EXPECT_FALSE(Write(file, second));
        EXPECT_TRUE(fault.happened());
        ExpectOpenFile(first, 1);
      }
      EXPECT_FALSE(Write(file, second)) << "full disk";
      ExpectOpenFile(first, 1);
    });
    EXPECT_EQ(errors, "failed mapping data\nfailed setting file size\n");
    unlink("/data/ballast");
    EXPECT_TRUE(Write(file, second));
  }
  EXPECT_EQ(ReadFile(kPath), first + second);
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
    buffer.Flush();
    buffer.Flush();
    EXPECT_EQ(Decode(kPath).members, 2);
    EXPECT_TRUE(Write(buffer, "end"));
  }
  EXPECT_EQ(Decode(kPath).members, 3);
  EXPECT_EQ(DecodeAll({kPath}), std::string(52428, 'a') + std::string(13108, 'b') + std::string(50000, 'c') + "end");
  // Level 9 says so in the header; no name, no time.
  EXPECT_EQ(ReadFile(kPath).substr(0, 10), std::string("\x1f\x8b\x08\0\0\0\0\0\x02\x03", 10));
}

TEST(LogBuffer, KeepsTextThatDoesNotShrink) {
  LogBuffer buffer;
  std::string all = Noise(52429, 1);
  EXPECT_FALSE(Write(buffer, all));  // kept, but on no file
  EXPECT_FALSE(Write(buffer, all));  // no room: dropped
  LogMmap file(kPath);
  buffer.SetupMap(&file);
  for (size_t i = 0; i < 10; ++i) {
    const std::string noise = Noise(65535, i);  // its compressed form, larger than the area, is split in two
    ASSERT_TRUE(Write(buffer, noise));
    all += noise;
  }
  EXPECT_EQ(Decode(kPath).members, 21);
  EXPECT_EQ(DecodeAll({kPath}), all);
}

TEST(LogBuffer, KeepsNothingWithoutADeflateState) {
  LogMmap file(kPath);
  const FailNthCall fault(FaultyCall::kDeflateInit, 1);
  const std::string errors = StandardErrorOf([&] {
    LogBuffer buffer;
    buffer.SetupMap(&file);
    EXPECT_FALSE(Write(buffer, "text"));
  });
  EXPECT_EQ(errors, "LogBuffer:deflateInit2 failed.\n");
  ExpectOpenFile("", 1);
}

TEST(Quil, BringsTextToItsFileByFlushAndByTimer) {
  {
    Quil writer;
    const std::string errors = StandardErrorOf([&] { EXPECT_FALSE(writer.SetOutputPath("/tmp/missing/log")); });
    EXPECT_EQ(errors, "failed opening file\nfailed mmap file\n");
    ASSERT_TRUE(writer.SetOutputPath("/tmp/first"));
    EXPECT_TRUE(Write(writer, "one"));
    writer.Flush();
    ASSERT_TRUE(writer.SetOutputPath("/tmp/second"));
    EXPECT_EQ(Decode("/tmp/first").text, "one");
    EXPECT_EQ(Decode("/tmp/first").zeroTail, 0u);
    EXPECT_TRUE(Write(writer, "two"));
    EXPECT_TRUE(WaitFor([] { return Decode("/tmp/second").text == "two"; }, 8));
  }
  EXPECT_EQ(Decode("/tmp/second").text, "two");
  EXPECT_EQ(Decode("/tmp/second").zeroTail, 0u);
}

TEST(Quil, LosesNothingBetweenWritersFlushesAndSwitches) {
  std::vector<std::string> paths;
  std::string all;
  {
    Quil writer;
    const auto switchFile = [&] {
      paths.push_back("/tmp/part" + std::to_string(paths.size()));
      writer.SetOutputPath(paths.back().c_str());
    };
    switchFile();
    std::atomic<bool> done{false};
    std::thread flusher([&] {
      while (!done) writer.Flush();
    });
    std::thread switcher([&] {
      for (; !done && paths.size() < 50; usleep(1000)) switchFile();
    });
    for (int i = 0; i < 3000; ++i) {
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

TEST(Quil, EndsItsTimerAtAnyMoment) {
  for (int i = 0; i < Rounds(300); ++i) {
    Quil writer;
    writer.SetOutputPath(kPath);
    Write(writer, "text");
    usleep(static_cast<useconds_t>(i % 7 * 100));
  }
  EXPECT_EQ(Decode(kPath).text, "text");
}
