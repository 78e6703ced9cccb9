#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "collect/quilbase.h"
#include "device.h"
#include "fault_injection.h"

using namespace Device;
using namespace QuilCommon;

namespace {

constexpr char kDirectory[] = "/data/log/out";
constexpr char kOutput[] = "/data/log/out/cat-log";
const std::string kOut = kOutput;

/// A collector without a worker, whose inner operations tests may call.
class Collector : public Quilbase {
 public:
  Collector(QuilcatGroup_t* group, type_write mode) : Quilbase(group, mode) {}
  void openLogFilePost() override {
    if (!title.empty()) {
      logcatWrite(title.data(), title.size(), true);
    }
  }
  using Quilbase::adjustFileVecOrder;
  using Quilbase::curFileBytes;
  using Quilbase::formFileVectors;
  using Quilbase::get_interger_from_iterator;
  using Quilbase::get_newLogFileIndex;
  using Quilbase::getTimeStamp;
  using Quilbase::logFileVec;
  using Quilbase::maxFiles;
  using Quilbase::mkdir_p;
  using Quilbase::processMmapFileVec;
  using Quilbase::rotateSizeKB;

  int Write(const std::string& text, bool lineDone = true) { return logcatWrite(text.data(), text.size(), lineDone); }

  std::string title;
};

class LogFileTest : public testing::Test {
 protected:
  LogFileTest() {
    group.info = &info;
    group.output_file_path = const_cast<char*>(kOutput);
    info.rotate_size_kbytes = 1;
    info.maxCompressdFiles = 3;
  }
  Collector& Make(type_write mode) {
    collector.reset();
    collector = std::make_unique<Collector>(&group, mode);
    return *collector;
  }
  /// The collector with its output set up; what that writes to standard error is dropped.
  Collector& SetUpOutput(type_write mode) {
    Make(mode);
    StandardErrorOf([this] { EXPECT_EQ(collector->setupOutput(), 0); });
    return *collector;
  }

  QuilcatInfo_t info = {};
  QuilcatGroup_t group = {};
  std::unique_ptr<Collector> collector;
};

/// "7@3" stands for the indexed file 007 with the 3rd time stamp.
std::string IndexedPath(const std::string& code) {
  const size_t at = code.find('@');
  char name[64];
  snprintf(name, sizeof name, ".I%s.20240131-2359%02d.gz",
           std::string(3 - std::min<size_t>(at, 3), '0').append(code, 0, at).c_str(), atoi(code.c_str() + at + 1));
  return kOut + name;
}

std::vector<std::string> IndexedPaths(const std::string& codes) {
  std::vector<std::string> paths;
  std::istringstream stream(codes);
  for (std::string code; stream >> code;) {
    paths.push_back(IndexedPath(code));
  }
  return paths;
}

/// What gzip-compressed and plain files of the output hold, in the order of their age.
std::string KeptText(type_write mode) {
  if (mode == WRITE_MMAP) {
    return DecodeAll(IndexedFiles(kDirectory));
  }
  std::string text;
  for (int number = 4; number >= 0; --number) {
    const std::string archive = kOut + "-" + std::to_string(number) + ".tar.gz";
    if (std::filesystem::exists(archive)) {
      EXPECT_EQ(system(("rm -rf /tmp/x; mkdir /tmp/x; tar xzf " + archive + " -C /tmp/x 2>/dev/null").c_str()), 0);
      for (int rotated = 5; rotated >= 1; --rotated) {
        text += ReadFile("/tmp/x/cat-log." + std::to_string(rotated));
      }
    }
  }
  for (int rotated = 5; rotated >= 1; --rotated) {
    text += ReadFile(kOut + "." + std::to_string(rotated));
  }
  return text + ReadFile(kOut);
}

}  // namespace

TEST_F(LogFileTest, OrdersFilesByAge) {
  struct Case {
    const char* sorted;
    const char* byAge;
    int next;
  };
  const Case cases[] = {
      {"", "", 0},
      {"5@1", "5@1", 6},
      {"0@9 1@8 2@1", "0@9 1@8 2@1", 3},  // the clock jumped backwards
      {"0@1 1@2 2@3", "0@1 1@2 2@3", 3},
      {"0@9 1@9 998@1 999@2", "998@1 999@2 0@9 1@9", 2},    // wrapped, whatever the time stamps
      {"0@3 1@4 997@9 999@8", "999@8 0@3 1@4 997@9", 998},  // three runs: the one with the newest end goes last ...
      {"0@1 1@2 7@8 8@9", "0@1 1@2 7@8 8@9", 9},            // ... as it does in two runs without 999
      {"0@8 1@9 7@1 8@2", "7@1 8@2 0@8 1@9", 2},
      {"0@1 1@5 7@1 8@5", "7@1 8@5 0@1 1@5", 2},  // a tie: the first
      {"-12@1 0@1 1@2", "0@1 1@2", 2},            // no name of ours
      {"1a3@5", "1a3@5", 0},
      {"999@1", "999@1", 0},
  };
  Collector& names = Make(WRITE_FACTORY);
  for (const Case& example : cases) {
    std::vector<std::string> paths = IndexedPaths(example.sorted);
    EXPECT_EQ(names.get_newLogFileIndex(paths), example.next) << example.sorted;
    EXPECT_EQ(paths, IndexedPaths(example.byAge)) << example.sorted;
  }
  std::vector<std::string> all;
  for (int i = 0; i < 1000; ++i) {
    all.push_back(IndexedPath(std::to_string(i) + "@" + std::to_string(i % 60)));
  }
  std::vector<std::string> ordered = all;
  EXPECT_EQ(names.get_newLogFileIndex(ordered), 0);
  EXPECT_EQ(ordered, all);
}

TEST_F(LogFileTest, ReadsFieldsOnlyFromNamesOfTheRightLength) {
  std::vector<std::string> name = {"/d/log.I007.20240131-235959.gz"};
  const auto field = [&name](uint32_t length, uint32_t position, uint32_t count) {
    return Collector::get_interger_from_iterator(name.begin(), length, position, count);
  };
  EXPECT_EQ(field(30, 8, 3), "007");
  EXPECT_EQ(field(30, 12, 15), "20240131-235959");
  EXPECT_EQ(field(29, 8, 3), "");
  EXPECT_EQ(field(30, 29, 3), "");
  EXPECT_EQ(field(30, 28, 3), "gz");
  EXPECT_EQ(field(30, 40, 0xfffffff0u), "");
}

TEST_F(LogFileTest, StampsAFailedClockAsTheStartOf1900) {
  const FailNthCall fault(FaultyCall::kLocalTime, 1);
  const std::unique_ptr<char, decltype(&free)> stamp(Make(WRITE_FACTORY).getTimeStamp(), &free);
  EXPECT_STREQ(stamp.get(), "19000100-000000");
}

TEST_F(LogFileTest, SetsUpDirectoriesFilesAndLinks) {
  SetUpOutput(WRITE_MMAP);
  EXPECT_EQ(OwnerAndMode("/data/log"), "root:root 775");
  EXPECT_EQ(OwnerAndMode(kDirectory), "root:system 775");
  std::vector<std::string> files = IndexedFiles(kDirectory);
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files[0].substr(0, kOut.size() + 6), kOut + ".I000.");
  EXPECT_EQ(OwnerAndMode(files[0]), "root:system 664");
  EXPECT_EQ(std::filesystem::read_symlink(kOut), files[0]);
  EXPECT_FALSE(std::filesystem::is_symlink(kOut + ".1"));

  std::filesystem::remove(kOut);
  WriteFile(kOut, "a plain file in the link's place");
  EXPECT_EQ(collector->Write(std::string(600, 'a')), 0);
  StandardErrorOf([&] { EXPECT_EQ(collector->Write(std::string(600, 'b')), 0); });
  files = IndexedFiles(kDirectory);
  ASSERT_EQ(files.size(), 2u);
  EXPECT_EQ(std::filesystem::read_symlink(kOut), files[1]);
  EXPECT_EQ(std::filesystem::read_symlink(kOut + ".1"), files[0]);
}

TEST_F(LogFileTest, RotatesBetweenLinesBeforeTheSizeIsReached) {
  for (const type_write mode : {WRITE_MMAP, WRITE_FACTORY}) {
    std::filesystem::remove_all(kDirectory);
    Collector& log = SetUpOutput(mode);
    testing::internal::CaptureStderr();
    log.Write(std::string(1000, 'a'), false);
    log.Write(std::string(24, 'b'), true);  // no rotation inside a line
    EXPECT_EQ(log.curFileBytes, 1024u);
    log.Write(std::string(23, 'c'));
    EXPECT_EQ(log.curFileBytes, 23u);
    log.rotateSizeKB = 0;
    log.Write(std::string(5000, 'd'));
    EXPECT_EQ(log.curFileBytes, 5023u);
    testing::internal::GetCapturedStderr();
    collector.reset();
    EXPECT_EQ(List(kDirectory).size(), mode == WRITE_MMAP ? 4u : 2u);
    EXPECT_EQ(KeptText(mode),
              std::string(1000, 'a') + std::string(24, 'b') + std::string(23, 'c') + std::string(5000, 'd'));
  }
}

TEST_F(LogFileTest, ATitleLongerThanTheRotationSizeRotatesNothing) {
  for (const type_write mode : {WRITE_MMAP, WRITE_FACTORY}) {
    std::filesystem::remove_all(kDirectory);
    Make(mode).title = std::string(1500, 't');
    StandardErrorOf([&] {
      EXPECT_EQ(collector->setupOutput(), 0);
      collector->Write("row\n");
    });
    collector.reset();
    EXPECT_EQ(KeptText(mode), std::string(1500, 't') + std::string(1500, 't') + "row\n");
  }
}

TEST_F(LogFileTest, SetsAVanishedFileUpAgain) {
  for (const type_write mode : {WRITE_MMAP, WRITE_FACTORY}) {
    std::filesystem::remove_all("/data/log");
    SetUpOutput(mode).Write("lost\n");
    std::filesystem::remove_all("/data/log");
    collector->title = "title\n";
    StandardErrorOf([&] { EXPECT_EQ(collector->Write("kept\n"), 0); });
    collector.reset();
    EXPECT_EQ(OwnerAndMode(kDirectory), "root:system 775");
    EXPECT_EQ(KeptText(mode).substr(mode == WRITE_MMAP ? KeptText(mode).find("title") : 0), "title\nkept\n");
  }
}

TEST_F(LogFileTest, KeepsTheNewestFilesOnly) {
  for (const char* code : {"997@1", "998@2", "999@3", "0@4", "1@5"}) {
    WriteFile(IndexedPath(code), "");
  }
  Collector& log = SetUpOutput(WRITE_MMAP);
  EXPECT_EQ(log.logFileVec[0], IndexedPath("999@3"));
  ASSERT_EQ(log.logFileVec.size(), 4u);  // three, and the one just opened
  EXPECT_EQ(log.logFileVec[3].substr(0, kOut.size() + 6), kOut + ".I002.");
  EXPECT_EQ(IndexedFiles(kDirectory).size(), 4u);
}

TEST_F(LogFileTest, TheFirstRotationRemovesTheFilesOfTheOtherMode) {
  for (const char* name : {".2", "-3.tar.gz", "-7.tar.gz", ".gz", "-old.txt.gz"}) {
    WriteFile(kOut + name, "");
  }
  WriteFile("/data/log/out/foreign.gz.txt", "");
  std::filesystem::create_directory(kOut + ".dir.gz");
  SetUpOutput(WRITE_MMAP);
  EXPECT_EQ(List(kDirectory).size(), 9u);
  collector->Write(std::string(1000, 'a'));
  const std::string errors = StandardErrorOf([&] { collector->Write(std::string(1000, 'b')); });
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 9) << errors;  // eight old names and one link are missing
  EXPECT_NE(errors.find("unlink [" + kOut + ".0] fail\n"), std::string::npos);
  std::vector<std::string> left = List(kDirectory);
  left.erase(std::remove_if(left.begin(), left.end(),
                            [](const std::string& name) { return name.find(".I") != std::string::npos; }),
             left.end());
  EXPECT_EQ(left, (std::vector<std::string>{"cat-log", "cat-log.1", "cat-log.dir.gz", "foreign.gz.txt"}));

  SetUpOutput(WRITE_FACTORY);  // the links go, so that nothing is written through them
  EXPECT_EQ(ReadFile(kOut), "");
  EXPECT_EQ(IndexedFiles(kDirectory).size(), 2u);
  collector->Write(std::string(1000, 'c'));
  EXPECT_EQ(StandardErrorOf([&] { collector->Write(std::string(1000, 'd')); }), "");
  EXPECT_TRUE(IndexedFiles(kDirectory).empty());
  EXPECT_EQ(KeptText(WRITE_FACTORY), std::string(1000, 'c') + std::string(1000, 'd'));
}

TEST_F(LogFileTest, ReportsWhatCannotBeSetUp) {
  struct Case {
    std::string output;
    type_write mode;
    std::string errors;
    int result;
  };
  WriteFile("/data/file", "");
  std::filesystem::create_directories(kOut + ".1");
  std::filesystem::create_directories("/data/log/live/cat");
  const std::string deep = "/data/" + std::string(249, 'x');
  const Case cases[] = {
      {"", WRITE_MMAP, "bugreport dir is invalide.\ncreate bugreports dir error!!\n", 1},
      {"name", WRITE_MMAP, "pend is invalide.\ncreate bugreports dir error!!\n", 1},
      {"/data/file/sub/log", WRITE_FACTORY,
       "mkdir_p: mkdir [/data/file/sub] err.\nmkdir_p dir[/data/file/sub] err\nchmod dir[/data/file/sub] err\n"
       "chown: cannot access '/data/file/sub': Not a directory\nopen pdir error.\n"
       "open file[/data/file/sub/log] err\ncouldn't open output file!!\n",
       1},
      {deep + "/log", WRITE_FACTORY,
       "mkdir_p dir[" + deep + "] err\nchmod dir[" + deep + "] err\nchown: cannot access '" + deep +
           "': No such file or directory\nopen pdir error.\nopen file[" + deep +
           "/log] err\ncouldn't open output file!!\n",
       1},
      {"/data/log/live/cat", WRITE_FACTORY, "open file[/data/log/live/cat] err\ncouldn't open output file!!\n", 1},
      {kOut, WRITE_MMAP, "refreshSymlink unlink [" + kOut + "] fail\nrefreshSymlink unlink [" + kOut + ".1] fail\n", 0},
  };
  for (const Case& example : cases) {
    group.output_file_path = const_cast<char*>(example.output.c_str());
    Make(example.mode);
    EXPECT_EQ(StandardErrorOf([&] { EXPECT_EQ(collector->setupOutput(), example.result); }), example.errors);
    StandardErrorOf([&] { collector->Write("text\n"); });
  }
  collector.reset();
}

TEST_F(LogFileTest, GoesOnWithoutTheChownCommand) {
  setenv("PATH", "/nowhere", 1);
  Make(WRITE_FACTORY);
  EXPECT_EQ(StandardErrorOf([&] { collector->setupOutput(); }),
            "chown [/data/log/out] err\nchown file[/data/log/out/cat-log] err\n");
  collector->Write("text\n");
  EXPECT_EQ(ReadFile(kOut), "text\n");
}

TEST_F(LogFileTest, FactoryModeContinuesAFileAndDropsTextAfterAFailedWrite) {
  WriteFile(kOut, std::string(1000, 'a'));
  Collector& log = SetUpOutput(WRITE_FACTORY);
  EXPECT_EQ(OwnerAndMode(kOut), "root:system 664");
  EXPECT_EQ(log.curFileBytes, 1000u);
  log.Write("b\n");
  EXPECT_EQ(ReadFile(kOut), std::string(1000, 'a') + "b\n");
  EXPECT_EQ(log.logcatWrite(nullptr, 1, true), 1);

  collector.reset();
  std::filesystem::remove(kOut);
  MountSmallDisk(kDirectory, 8);
  SetUpOutput(WRITE_FACTORY).rotateSizeKB = 64;
  std::string errors = StandardErrorOf([&] {
    EXPECT_EQ(collector->Write(std::string(4000, 'c')), 0);
    EXPECT_EQ(collector->Write(std::string(9000, 'd')), 1);
    EXPECT_EQ(collector->Write("dropped\n"), 0);
  });
  EXPECT_EQ(errors, kOut + ": write fail\n");
  EXPECT_EQ(ReadFile(kOut).size(), 8192u);
  std::filesystem::remove(kOut);  // room again
  StandardErrorOf([&] { EXPECT_EQ(collector->Write("kept\n"), 0); });
  EXPECT_EQ(ReadFile(kOut), "kept\n");
}

TEST_F(LogFileTest, FactoryModeArchivesFiveFilesAndKeepsTheNewestArchives) {
  struct Case {
    size_t files;
    int rotations;
    std::vector<std::string> names;
    int firstLine;
  };
  // Two lines of 500 bytes a file.
  const Case cases[] = {
      {10, 4, {"", ".1", ".2", ".3", ".4"}, 0},          {10, 5, {"", "-0.tar.gz"}, 0},
      {10, 11, {"", "-0.tar.gz", "-1.tar.gz", ".1"}, 0}, {10, 15, {"", "-0.tar.gz", "-1.tar.gz"}, 10},
      {5, 12, {"", "-0.tar.gz", ".1", ".2"}, 10},        {0, 7, {"", ".1", ".2", ".3", ".4", ".5"}, 4},
  };
  for (const Case& example : cases) {
    std::filesystem::remove_all(kDirectory);
    info.maxCompressdFiles = example.files;
    SetUpOutput(WRITE_FACTORY);
    std::string expected;
    for (int i = 0; i < 2 * example.rotations + 2; ++i) {
      const std::string line = std::to_string(i) + std::string(500 - std::to_string(i).size(), '.');
      EXPECT_EQ(StandardErrorOf([&] { EXPECT_EQ(collector->Write(line), 0); }), "");
      expected += i >= example.firstLine ? line : "";
    }
    std::vector<std::string> names;
    for (const std::string& suffix : example.names) {
      names.push_back("cat-log" + suffix);
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(List(kDirectory), names);
    EXPECT_EQ(KeptText(WRITE_FACTORY), expected);
    if (std::filesystem::exists(kOut + "-0.tar.gz")) {
      EXPECT_EQ(OwnerAndMode(kOut + "-0.tar.gz"), "system:system 644");
    }
  }
}

TEST_F(LogFileTest, FactoryModeReportsFilesInItsWay) {
  std::filesystem::create_directories(kOut + ".3");
  std::filesystem::create_directories(kOut + "_tmp");
  info.maxCompressdFiles = 10;
  SetUpOutput(WRITE_FACTORY);
  std::string errors;
  for (int i = 0; i < 12; ++i) {
    errors += StandardErrorOf([&] { EXPECT_EQ(collector->Write(std::string(1000, 'a')), 0); });
  }
  EXPECT_NE(errors.find("unlink failed: Is a directory\n"), std::string::npos) << errors;
  EXPECT_NE(errors.find("couldn't create compress dir: File exists\n"), std::string::npos) << errors;
  EXPECT_EQ(ReadFile(kOut), std::string(1000, 'a'));
}

TEST_F(LogFileTest, FactoryModeGoesOnWhereAProcessDied) {
  // Files as they stand after each step of a rotation that was interrupted; digits are their text, oldest first.
  struct Case {
    std::vector<std::pair<std::string, std::string>> files;
    std::string kept;
  };
  const std::string run = "_tmp/cat-log.";
  const std::vector<Case> cases = {
      {{{"-0.tar.gz", "A"}, {".5", "1"}, {".3", "2"}, {".2", "3"}, {".1", "4"}, {"", "5"}}, "A12345"},
      {{{"-0.tar.gz", "A"}, {".5", "1"}, {".4", "2"}, {".3", "3"}, {".2", "4"}, {".1", "5"}}, "A12345"},
      {{{"-0.tar.gz", "A"}, {run + "5", "1"}, {run + "4", "2"}, {".3", "3"}, {".2", "4"}, {".1", "5"}}, "A12345"},
      {{{"-0.tar.gz", "A"},
        {run + "5", "1"},
        {run + "4", "2"},
        {run + "3", "3"},
        {run + "2", "4"},
        {run + "1", "5"},
        {"_tmp/unfinished.tar.gz", "x"}},
       "A12345"},
      {{{"-0.tar.gz", "A"}, {"_tmp/packed.tar.gz", "B"}, {run + "4", "2"}}, "AB"},
      {{{"-1.tar.gz", "A"}, {"_tmp/packed.tar.gz", "B"}}, "AB"},
  };
  info.maxCompressdFiles = 25;
  for (const Case& example : cases) {
    std::filesystem::remove_all(kDirectory);
    for (const auto& [name, text] : example.files) {
      WriteFile(kOut + name, text);
      if (name.find(".tar.gz") != std::string::npos && text != "x") {  // an archive of one file that holds the text
        WriteFile("/tmp/make/cat-log.1", text);
        ASSERT_EQ(system(("tar czf " + kOut + name + " -C /tmp/make cat-log.1").c_str()), 0);
      }
    }
    SetUpOutput(WRITE_FACTORY);
    EXPECT_EQ(KeptText(WRITE_FACTORY), example.kept);
    EXPECT_FALSE(std::filesystem::exists(kOut + "_tmp"));
    EXPECT_FALSE(std::filesystem::exists(kOut + ".5"));
  }
}

TEST_F(LogFileTest, DerivesItsLimitsFromTheService) {
  struct Case {
    size_t files;
    type_write mode;
    uint64_t kept;
    size_t lowered;
  };
  for (const Case& example : {Case{1001, WRITE_MMAP, 1000, 1000}, Case{1000, WRITE_FACTORY, 200, 1000},
                              Case{7, WRITE_FACTORY, 2, 7}, Case{0, WRITE_FACTORY, 0, 0}}) {
    info.maxCompressdFiles = example.files;
    EXPECT_EQ(Make(example.mode).maxFiles, example.kept);
    EXPECT_EQ(info.maxCompressdFiles, example.lowered);
  }
  group.info = nullptr;
  EXPECT_EQ(Make(WRITE_MMAP).maxFiles, 10u);
  EXPECT_EQ(Make(WRITE_FACTORY).maxFiles, 2u);
  EXPECT_EQ(collector->rotateSizeKB, 4096u);
}
