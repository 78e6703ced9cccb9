#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "collect/quilbase.h"
#include "device.h"
#include "fault_injection.h"

using namespace Device;
using namespace QuilCommon;

namespace {

constexpr char kDirectory[] = "/data/log/out";
const std::string kOut = "/data/log/out/cat-log";

/// A collector without a worker, whose inner state tests may look at.
class Collector : public Quilbase {
 public:
  Collector(QuilcatGroup_t* group, type_write mode) : Quilbase(group, mode) {}
  void openLogFilePost() override { Write(title); }
  using Quilbase::curFileBytes;
  using Quilbase::maxFiles;
  using Quilbase::rotateSizeKB;

  int Write(const std::string& text, bool lineDone = true) { return logcatWrite(text.data(), text.size(), lineDone); }

  std::string title;
};

class LogFileTest : public testing::Test {
 protected:
  LogFileTest() {
    group.info = &info;
    group.output_file_path = const_cast<char*>(kOut.c_str());
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
  /// What a write, which succeeds, reports.
  std::string ErrorsOfWrite(const std::string& text) {
    return StandardErrorOf([&] { EXPECT_EQ(collector->Write(text), 0); });
  }

  QuilcatInfo_t info = {};
  QuilcatGroup_t group = {};
  std::unique_ptr<Collector> collector;
};

/// What the files of a mode hold, oldest first.
std::string KeptText(type_write mode) {
  return mode == WRITE_MMAP ? DecodeAll(IndexedFiles(kDirectory)) : FactoryText(kOut);
}

}  // namespace

TEST_F(LogFileTest, SetsUpDirectoriesFilesAndLinks) {
  {
    const FailNthCall noLocalTime(FaultyCall::kLocalTime, 1);
    SetUpOutput(WRITE_MMAP);
  }
  const std::string first = kOut + ".I000.19000100-000000.gz";
  EXPECT_EQ(IndexedFiles(kDirectory), std::vector<std::string>{first});
  EXPECT_EQ(OwnerAndMode("/data/log"), "root:root 775");
  EXPECT_EQ(OwnerAndMode(kDirectory), "root:system 775");
  EXPECT_EQ(OwnerAndMode(first), "root:system 664");
  EXPECT_EQ(std::filesystem::read_symlink(kOut), first);
  EXPECT_FALSE(std::filesystem::is_symlink(kOut + ".1"));

  std::filesystem::remove(kOut);
  WriteFile(kOut, "a plain file in the link's place");
  ErrorsOfWrite(std::string(600, 'a'));
  ErrorsOfWrite(std::string(600, 'b'));
  const std::vector<std::string> files = IndexedFiles(kDirectory);
  ASSERT_EQ(files.size(), 2u);
  EXPECT_EQ(files[1].substr(0, kOut.size() + 8), kOut + ".I001.20");
  EXPECT_EQ(std::filesystem::read_symlink(kOut), files[1]);
  EXPECT_EQ(std::filesystem::read_symlink(kOut + ".1"), first);
}

TEST_F(LogFileTest, RotatesBetweenLinesBeforeTheSizeIsReached) {
  const std::string a(1000, 'a'), b(24, 'b'), c(23, 'c'), d(5000, 'd'), title(1500, 't');
  for (const type_write mode : {WRITE_MMAP, WRITE_FACTORY}) {
    std::filesystem::remove_all(kDirectory);
    Collector& log = SetUpOutput(mode);
    log.Write(a, false);
    log.Write(b);  // no rotation inside a line
    EXPECT_EQ(log.curFileBytes, 1024u);
    ErrorsOfWrite(c);
    EXPECT_EQ(log.curFileBytes, 23u);
    log.rotateSizeKB = 0;
    log.Write(d);
    EXPECT_EQ(log.curFileBytes, 5023u);
    log.rotateSizeKB = 1;
    log.title = title;  // longer than a file, yet it rotates nothing
    ErrorsOfWrite("row\n");
    collector.reset();
    EXPECT_EQ(List(kDirectory).size(), mode == WRITE_MMAP ? 5u : 3u);
    EXPECT_EQ(KeptText(mode), a + b + c + d + title + "row\n");
  }
}

TEST_F(LogFileTest, SetsAVanishedFileUpAgain) {
  for (const type_write mode : {WRITE_MMAP, WRITE_FACTORY}) {
    std::filesystem::remove_all("/data/log");
    SetUpOutput(mode).Write("lost\n");
    std::filesystem::remove_all("/data/log");
    collector->title = "title\n";
    ErrorsOfWrite("kept\n");
    collector.reset();
    EXPECT_EQ(OwnerAndMode(kDirectory), "root:system 775");
    EXPECT_EQ(KeptText(mode), "title\nkept\n");
  }
}

TEST_F(LogFileTest, KeepsTheNewestFilesOnly) {
  for (const char* index : {"997", "998", "999", "000", "001"}) {
    WriteFile(kOut + ".I" + index + ".20240131-235959.gz", "");
  }
  SetUpOutput(WRITE_MMAP);
  const std::vector<std::string> files = IndexedFiles(kDirectory);
  ASSERT_EQ(files.size(), 4u);  // three, and the one just opened
  EXPECT_EQ(files[2].substr(0, kOut.size() + 6), kOut + ".I002.");
  EXPECT_EQ(files[3], kOut + ".I999.20240131-235959.gz");

  info.maxCompressdFiles = 1001;
  EXPECT_EQ(Make(WRITE_MMAP).maxFiles, 1000u);
  EXPECT_EQ(info.maxCompressdFiles, 1000u);
}

TEST_F(LogFileTest, TheFirstRotationRemovesTheFilesOfTheOtherMode) {
  const std::string a(1000, 'a'), b(1000, 'b');
  for (const char* name : {".2", "-3.tar.gz", "-7.tar.gz", ".gz", "-old.txt.gz"}) {
    WriteFile(kOut + name, "");
  }
  WriteFile("/data/log/out/foreign.gz.txt", "");
  std::filesystem::create_directory(kOut + ".dir.gz");
  SetUpOutput(WRITE_MMAP);
  EXPECT_EQ(List(kDirectory).size(), 9u);
  collector->Write(a);
  const std::string errors = ErrorsOfWrite(b);
  EXPECT_EQ(Lines(errors).size(), 9u) << errors;  // eight old names and one link are missing
  EXPECT_NE(errors.find("unlink [" + kOut + ".0] fail\n"), std::string::npos);
  EXPECT_EQ(ErrorsOfWrite(a), "");                         // the second rotation looks for none
  const std::vector<std::string> left = List(kDirectory);  // three indexed files behind the links
  ASSERT_EQ(left.size(), 7u);
  EXPECT_EQ(left[0] + " " + left[1], "cat-log cat-log.1");
  EXPECT_EQ(left[5] + " " + left[6], "cat-log.dir.gz foreign.gz.txt");

  SetUpOutput(WRITE_FACTORY);  // the links go, so that nothing is written through them
  EXPECT_EQ(ReadFile(kOut), "");
  EXPECT_EQ(KeptText(WRITE_MMAP), a + b + a);
  collector->Write(b);
  EXPECT_EQ(ErrorsOfWrite(a), "");
  EXPECT_TRUE(IndexedFiles(kDirectory).empty());
  EXPECT_EQ(KeptText(WRITE_FACTORY), b + a);
}

TEST_F(LogFileTest, ReportsWhatCannotBeSetUp) {
  WriteFile("/data/file", "");
  std::filesystem::create_directories(kOut + ".1");
  std::filesystem::create_directories("/data/log/live/cat");
  const std::string tooLong = "/data/" + std::string(249, 'x');
  const std::string noFile = "couldn't open output file!!\n";
  const auto noDirectory = [&](const std::string& path, const std::string& reason) {
    return "mkdir_p dir[" + path + "] err\nchmod dir[" + path + "] err\nchown: cannot access '" + path +
           "': " + reason + "\nopen pdir error.\nopen file[" + path + "/log] err\n" + noFile;
  };
  const std::tuple<std::string, type_write, std::string, int> cases[] = {
      {"", WRITE_MMAP, "bugreport dir is invalide.\ncreate bugreports dir error!!\n", 1},
      {"name", WRITE_MMAP, "pend is invalide.\ncreate bugreports dir error!!\n", 1},
      {"/data/file/sub/log", WRITE_FACTORY,
       "mkdir_p: mkdir [/data/file/sub] err.\n" + noDirectory("/data/file/sub", "Not a directory"), 1},
      {tooLong + "/log", WRITE_FACTORY, noDirectory(tooLong, "No such file or directory"), 1},
      {"/data/log/live/cat", WRITE_FACTORY, "open file[/data/log/live/cat] err\n" + noFile, 1},
      {kOut, WRITE_MMAP, "refreshSymlink unlink [" + kOut + "] fail\nrefreshSymlink unlink [" + kOut + ".1] fail\n", 0},
  };
  int result = 0;
  const auto setUp = [&] { result = collector->setupOutput(); };
  for (const auto& [output, mode, errors, expectedResult] : cases) {
    group.output_file_path = const_cast<char*>(output.c_str());
    Make(mode);
    EXPECT_EQ(StandardErrorOf(setUp), errors);
    EXPECT_EQ(result, expectedResult) << output;
    ErrorsOfWrite("text\n");
  }
  setenv("PATH", "/nowhere", 1);  // no chown command
  Make(WRITE_FACTORY);
  EXPECT_EQ(StandardErrorOf(setUp), "chown [/data/log/out] err\nchown file[/data/log/out/cat-log] err\n");
  collector->Write("text\n");
  EXPECT_EQ(ReadFile(kOut), "text\n");
  collector.reset();
}

TEST_F(LogFileTest, FactoryModeContinuesAFileAndDropsTextAfterAFailedWrite) {
  MountSmallDisk(kDirectory, 8);
  WriteFile(kOut, std::string(1000, 'a'));
  Collector& log = SetUpOutput(WRITE_FACTORY);
  EXPECT_EQ(OwnerAndMode(kOut), "root:system 664");
  EXPECT_EQ(log.curFileBytes, 1000u);
  log.Write("b\n");
  EXPECT_EQ(ReadFile(kOut), std::string(1000, 'a') + "b\n");
  EXPECT_EQ(log.logcatWrite(nullptr, 1, true), 1);

  log.rotateSizeKB = 64;
  EXPECT_EQ(StandardErrorOf([&] { EXPECT_EQ(log.Write(std::string(9000, 'd')), 1); }), kOut + ": write fail\n");
  EXPECT_EQ(ErrorsOfWrite("dropped\n"), "");
  EXPECT_EQ(ReadFile(kOut).size(), 8192u);
  std::filesystem::remove(kOut);  // room again
  ErrorsOfWrite("kept\n");
  EXPECT_EQ(ReadFile(kOut), "kept\n");
}

TEST_F(LogFileTest, FactoryModeArchivesFiveFilesAndKeepsTheNewestArchives) {
  // Files to keep, an archive for each five of them or less; rotations; what stands then; the first line in it.
  const std::tuple<size_t, int, std::vector<std::string>, int> cases[] = {
      {10, 4, {"", ".1", ".2", ".3", ".4"}, 0},         {10, 5, {"", "-0.tar.gz"}, 0},
      {7, 11, {"", "-0.tar.gz", "-1.tar.gz", ".1"}, 0}, {10, 15, {"", "-0.tar.gz", "-1.tar.gz"}, 10},
      {5, 12, {"", "-0.tar.gz", ".1", ".2"}, 10},       {0, 7, {"", ".1", ".2", ".3", ".4", ".5"}, 4},
  };
  for (const auto& [files, rotations, suffixes, firstLine] : cases) {
    std::filesystem::remove_all(kDirectory);
    info.maxCompressdFiles = files;
    SetUpOutput(WRITE_FACTORY);
    std::string kept;
    for (int i = 0; i < 2 * rotations + 2; ++i) {  // two lines a file
      const std::string line = std::to_string(i) + std::string(500 - std::to_string(i).size(), '.');
      EXPECT_EQ(ErrorsOfWrite(line), "");
      kept += i >= firstLine ? line : "";
    }
    EXPECT_EQ(KeptText(WRITE_FACTORY), kept);
    std::vector<std::string> names;
    for (const std::string& suffix : suffixes) {
      names.push_back("cat-log" + suffix);
    }
    EXPECT_EQ(List(kDirectory), names);
    EXPECT_EQ(OwnerAndMode(kOut + "-0.tar.gz"), names[1] == "cat-log-0.tar.gz" ? "system:system 644" : "missing");
  }
}

TEST_F(LogFileTest, FactoryModeReportsFilesInItsWay) {
  std::filesystem::create_directories(kOut + ".3");
  std::filesystem::create_directories(kOut + "_tmp");
  SetUpOutput(WRITE_FACTORY);
  std::string errors;
  for (int i = 0; i < 12; ++i) {
    errors += ErrorsOfWrite(std::string(1000, 'a'));
  }
  EXPECT_NE(errors.find("unlink failed: Is a directory\n"), std::string::npos) << errors;
  EXPECT_NE(errors.find("couldn't create compress dir: File exists\n"), std::string::npos) << errors;
  EXPECT_EQ(ReadFile(kOut), std::string(1000, 'a'));
}

TEST_F(LogFileTest, FactoryModeGoesOnWhereAProcessDied) {
  // Files as they stand after each step of a rotation that was interrupted. The first holds "A", the next "B", ...
  const std::string run = "_tmp/cat-log.";
  const std::string packed = "_tmp/packed.tar.gz";
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"-0.tar.gz", ".5", ".3", ".2", ".1", ""}, "ABCDEF"},
      {{"-0.tar.gz", ".5", ".4", ".3", ".2", ".1"}, "ABCDEF"},
      {{"-0.tar.gz", run + "5", run + "4", ".3", ".2", ".1"}, "ABCDEF"},
      {{"-0.tar.gz", run + "5", run + "4", run + "3", run + "2", run + "1", "_tmp/unfinished.tar.gz"}, "ABCDEF"},
      {{"-0.tar.gz", packed, run + "4"}, "AB"},
      {{"-1.tar.gz", packed}, "AB"},
  };
  info.maxCompressdFiles = 25;
  for (const auto& [suffixes, kept] : cases) {
    std::filesystem::remove_all(kDirectory);
    for (size_t i = 0; i < suffixes.size(); ++i) {
      const std::string path = kOut + suffixes[i];
      WriteFile(path, std::string(1, "ABCDEFG"[i]));
      if (path.find(".tar.gz") != std::string::npos) {  // an archive of one file that holds the text
        ASSERT_EQ(system(("cd /tmp; mv " + path + " cat-log.1; tar czf " + path + " cat-log.1").c_str()), 0);
      }
    }
    SetUpOutput(WRITE_FACTORY);
    EXPECT_EQ(KeptText(WRITE_FACTORY), kept);
    EXPECT_FALSE(std::filesystem::exists(kOut + "_tmp"));
    EXPECT_FALSE(std::filesystem::exists(kOut + ".5"));
  }
}
