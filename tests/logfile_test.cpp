#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "device.h"
#include "fault_injection.h"
#include "logfile/factory_output.h"
#include "logfile/mapped_output.h"

using namespace Device;

namespace {

constexpr char kDirectory[] = "/data/log/out";
const std::string kOut = "/data/log/out/cat-log";

enum Mode { kMapped, kFactory };

/// An output whose files begin with `title`. What it reports is given by the calls that use it.
class LogFileTest : public testing::Test, public LogOutput::Owner {
 protected:
  LogFileTest() {
    settings.outputFilePath = kOut.c_str();
    settings.rotateSizeKB = 1;
    settings.maxFiles = 3;
  }
  void openLogFilePost() override { output->logcatWrite(title.data(), title.size(), true); }
  void outputDirectoryMade() override {}

  std::string SetUpOutput(Mode mode, int result = 0) {
    output.reset();
    if (mode == kMapped) {
      output = std::make_unique<MappedOutput>(settings, *this);
    } else {
      output = std::make_unique<FactoryOutput>(settings, *this);
    }
    return StandardErrorOf([&] { EXPECT_EQ(output->setupOutput(), result) << settings.outputFilePath; });
  }
  std::string Write(const std::string& text, bool lineDone = true, int result = 0) {
    return StandardErrorOf([&] { EXPECT_EQ(output->logcatWrite(text.data(), text.size(), lineDone), result); });
  }
  /// What the files of a mode hold, oldest first.
  static std::string KeptText(Mode mode) {
    return mode == kMapped ? DecodeAll(Device::IndexedFiles(kDirectory)) : FactoryText(kOut);
  }

  LogOutput::Settings settings;
  std::string title;
  std::unique_ptr<LogOutput> output;
};

}  // namespace

TEST_F(LogFileTest, SetsUpDirectoriesFilesAndLinks) {
  {
    const FailNthCall noLocalTime(FaultyCall::kLocalTime, 1);
    SetUpOutput(kMapped);
  }
  const std::string first = kOut + ".I000.19000100-000000.gz";
  EXPECT_EQ(Device::IndexedFiles(kDirectory), std::vector<std::string>{first});
  EXPECT_EQ(OwnerAndMode("/data/log"), "root:root 775");
  EXPECT_EQ(OwnerAndMode(kDirectory), "root:system 775");
  EXPECT_EQ(OwnerAndMode(first), "root:system 664");
  EXPECT_EQ(std::filesystem::read_symlink(kOut), first);
  EXPECT_FALSE(std::filesystem::is_symlink(kOut + ".1"));

  std::filesystem::remove(kOut);
  WriteFile(kOut, "a plain file in the link's place");
  Write(std::string(600, 'a'));
  Write(std::string(600, 'b'));
  const std::vector<std::string> files = Device::IndexedFiles(kDirectory);
  ASSERT_EQ(files.size(), 2u);
  EXPECT_EQ(files[1].substr(0, kOut.size() + 8), kOut + ".I001.20");
  EXPECT_EQ(std::filesystem::read_symlink(kOut), files[1]);
  EXPECT_EQ(std::filesystem::read_symlink(kOut + ".1"), first);
}

TEST_F(LogFileTest, RotatesBetweenLinesBeforeTheSizeIsReachedAndSetsAVanishedFileUpAgain) {
  const std::string a(1000, 'a'), b(24, 'b'), c(23, 'c'), d(1000, 'd'), longTitle(1500, 't');
  for (const Mode mode : {kMapped, kFactory}) {
    std::filesystem::remove_all("/data/log");
    title = "";
    SetUpOutput(mode);
    Write("lost\n");
    std::filesystem::remove_all("/data/log");
    Write(a, false);
    EXPECT_EQ(OwnerAndMode(kDirectory), "root:system 775");
    Write(b);  // no rotation inside a line
    Write(c);
    Write(d, true);     // 1023 bytes in the file
    title = longTitle;  // longer than a file, yet it rotates nothing
    Write("row\n");
    output.reset();
    EXPECT_EQ(List(kDirectory).size(), mode == kMapped ? 5u : 3u);
    EXPECT_EQ(KeptText(mode), a + b + c + d + title + "row\n");
  }
}

TEST_F(LogFileTest, KeepsTheNewestFilesOnly) {
  for (const char* index : {"997", "998", "999", "000", "001"}) {
    WriteFile(kOut + ".I" + index + ".20240131-235959.gz", "");
  }
  SetUpOutput(kMapped);
  const std::vector<std::string> files = Device::IndexedFiles(kDirectory);
  ASSERT_EQ(files.size(), 4u);  // three, and the one just opened
  EXPECT_EQ(files[2].substr(0, kOut.size() + 6), kOut + ".I002.");
  EXPECT_EQ(files[3], kOut + ".I999.20240131-235959.gz");
}

TEST_F(LogFileTest, TheFirstRotationRemovesTheFilesOfTheOtherMode) {
  const std::string a(1000, 'a'), b(1000, 'b');
  for (const char* name : {".2", "-3.tar.gz", "-7.tar.gz", ".gz", "-old.txt.gz"}) {
    WriteFile(kOut + name, "");
  }
  WriteFile("/data/log/out/foreign.gz.txt", "");
  std::filesystem::create_directory(kOut + ".dir.gz");
  SetUpOutput(kMapped);
  EXPECT_EQ(List(kDirectory).size(), 9u);
  Write(a);
  const std::string errors = Write(b);
  EXPECT_EQ(Lines(errors).size(), 9u) << errors;  // eight old names and one link are missing
  EXPECT_NE(errors.find("unlink [" + kOut + ".0] fail\n"), std::string::npos);
  EXPECT_EQ(Write(a), "");                                 // the second rotation looks for none
  const std::vector<std::string> left = List(kDirectory);  // three indexed files behind the links
  ASSERT_EQ(left.size(), 7u);
  EXPECT_EQ(left[0] + " " + left[1], "cat-log cat-log.1");
  EXPECT_EQ(left[5] + " " + left[6], "cat-log.dir.gz foreign.gz.txt");

  SetUpOutput(kFactory);  // the links go, so that nothing is written through them
  EXPECT_EQ(ReadFile(kOut), "");
  EXPECT_EQ(KeptText(kMapped), a + b + a);
  Write(b);
  EXPECT_EQ(Write(a), "");
  EXPECT_TRUE(Device::IndexedFiles(kDirectory).empty());
  EXPECT_EQ(KeptText(kFactory), b + a);
}

TEST_F(LogFileTest, ReportsWhatCannotBeSetUp) {
  WriteFile("/data/file", "");
  std::filesystem::create_directories(kOut + ".1");
  std::filesystem::create_directories("/data/log/live/cat");
  const std::string tooLong = "/data/" + std::string(249, 'x');
  const std::string noFile = "couldn't open output file!!\n";
  const auto noDirectory = [&](const std::string& path) {
    return "mkdir_p dir[" + path + "] err\nchmod dir[" + path + "] err\nopen pdir error.\nopen file[" + path +
           "/log] err\n" + noFile;
  };
  const std::tuple<std::string, Mode, std::string, int> cases[] = {
      {"", kMapped, "bugreport dir is invalide.\ncreate bugreports dir error!!\n", 1},
      {"name", kMapped, "pend is invalide.\ncreate bugreports dir error!!\n", 1},
      {"/data/file/sub/log", kFactory, "mkdir_p: mkdir [/data/file/sub] err.\n" + noDirectory("/data/file/sub"), 1},
      {tooLong + "/log", kFactory, noDirectory(tooLong), 1},
      {"/data/log/live/cat", kFactory, "open file[/data/log/live/cat] err\n" + noFile, 1},
      {kOut, kMapped, "refreshSymlink unlink [" + kOut + "] fail\nrefreshSymlink unlink [" + kOut + ".1] fail\n", 0},
  };
  for (const auto& [path, mode, errors, result] : cases) {
    settings.outputFilePath = path.c_str();
    EXPECT_EQ(SetUpOutput(mode, result), errors);
    std::string later;
    for (int i = 0; i < 100; ++i) {
      later += Write("text\n");
    }
    EXPECT_EQ(later, result == 0 ? "" : errors);  // a second set-up, and the third not before a second is over
  }
  setenv("PATH", "/nowhere", 1);  // no chown command
  settings.outputFilePath = kOut.c_str();
  EXPECT_EQ(SetUpOutput(kFactory), "chown [/data/log/out] err\nchown file[/data/log/out/cat-log] err\n");
  Write("text\n");
  EXPECT_EQ(ReadFile(kOut), "text\n");
}

TEST_F(LogFileTest, FactoryModeContinuesAFileAndDropsTextAfterAFailedWrite) {
  MountSmallDisk(kDirectory, 8);
  WriteFile(kOut, std::string(1000, 'a'));
  settings.rotateSizeKB = 64;
  SetUpOutput(kFactory);
  EXPECT_EQ(OwnerAndMode(kOut), "root:system 664");
  Write("b\n");
  EXPECT_EQ(ReadFile(kOut), std::string(1000, 'a') + "b\n");
  EXPECT_EQ(output->logcatWrite(nullptr, 1, true), 1);

  EXPECT_EQ(Write(std::string(9000, 'd'), true, 1), kOut + ": write fail\n");
  EXPECT_EQ(Write("dropped\n"), "");
  EXPECT_EQ(ReadFile(kOut).size(), 8192u);
  std::filesystem::resize_file(kOut, 0);  // room again
  usleep(1100000);
  Write("kept\n");
  EXPECT_EQ(ReadFile(kOut), "kept\n");
  EXPECT_EQ(Write(std::string(9000, 'd'), true, 1), kOut + ": write fail\n");
  std::filesystem::remove(kOut);
  Write("kept\n");  // at once
  EXPECT_EQ(ReadFile(kOut), "kept\n");
}

TEST_F(LogFileTest, NobodyInTheDirectoryHasAnotherFileWrittenOrGivenAway) {
  const std::string secret = "/data/secret/shadow";
  const std::string asIs = "root:root 600";
  // What stands at the output, its directory or the packing directory, as a shell makes it.
  const std::string traps[] = {
      "ln -s /data/secret/shadow $O",
      "ln -s /data/secret/new $O",
      "ln /data/secret/shadow $O",
      "mkfifo $O",
      "rmdir /data/log/out; ln -s /data/secret /data/log/out",
      "mkdir ${O}_tmp; chmod 777 ${O}_tmp; ln -s /data/secret/shadow ${O}_tmp/unfinished.tar.gz",
      "ln -s /data/secret ${O}_tmp",
      "ln -s /data/secret/shadow $O.1; ln /data/secret/shadow $O.2",
  };
  for (const std::string& trap : traps) {
    for (const Mode mode : {kMapped, kFactory}) {
      std::filesystem::remove_all("/data");
      WriteFile(secret, "secret");
      ASSERT_EQ(
          system(("chmod 600 /data/secret/*; chmod 700 /data/secret; mkdir -p /data/log/out; O=" + kOut + "; " + trap)
                     .c_str()),
          0);
      SetUpOutput(mode);
      for (int i = 0; i < 14; ++i) {
        Write(std::string(999, 'a' + static_cast<char>(i)) + "\n");
      }
      output.reset();
      EXPECT_EQ(ReadFile(secret), "secret") << trap;
      EXPECT_EQ(OwnerAndMode(secret), asIs) << trap;
      EXPECT_EQ(List("/data/secret"), std::vector<std::string>{"shadow"}) << trap;
      EXPECT_EQ(OwnerAndMode("/data/secret"), "root:root 700") << trap;
      EXPECT_EQ(KeptText(mode).find("secret"), std::string::npos) << trap;
      EXPECT_EQ(KeptText(mode).back(), '\n') << trap;
    }
  }
}

/// The chown command follows links, and takes a while to start.
TEST_F(LogFileTest, NobodyPutsALinkInTheWayOfTheChownCommand) {
  WriteFile("/data/secret", "secret");
  WriteFile("/tmp/bin/chown",
            "#!/bin/sh\n"
            "setpriv --reuid 2000 --regid 1000 --clear-groups sh -c \"mv $2 $2.away && ln -s /data/secret $2\"\n"
            "exec /bin/chown \"$@\"\n");
  Shell("chmod 755 /tmp/bin/chown");
  const std::string path = getenv("PATH");
  setenv("PATH", ("/tmp/bin:" + path).c_str(), 1);
  for (const Mode mode : {kMapped, kFactory}) {
    SetUpOutput(mode);
    EXPECT_EQ(OwnerAndMode("/data/secret"), "root:root 644");
    EXPECT_EQ(OwnerAndMode(kDirectory), "root:system 775");  // and those of the group may write again
  }
  setenv("PATH", path.c_str(), 1);
}

TEST_F(LogFileTest, FactoryModeKeepsWhatItCannotPack) {
  MountSmallDisk(kDirectory, 128);
  settings.maxFiles = 2;
  settings.rotateSizeKB = 8;
  SetUpOutput(kFactory);
  std::string kept;
  const auto fill = [&](int files) {  // with text that does not shrink
    std::string errors;
    for (int i = 0; i < 2 * files; ++i) {
      std::string line(3999, ' ');
      std::generate(line.begin(), line.end(), [] { return static_cast<char>(33 + rand() % 90); });
      kept += line + "\n";
      errors += Write(line + "\n");
    }
    return errors;
  };
  EXPECT_EQ(fill(5), "");
  const std::string ballast = std::string(kDirectory) + "/ballast";
  WriteFile(ballast, std::string(60 << 10, 'x'));  // leaves room for three files, not for an archive
  const std::string failure = "couldn't pack log files of " + kOut + ", they stay in its compress dir\n";
  EXPECT_EQ(fill(3), failure + failure + failure);
  EXPECT_EQ(List(kOut + "_tmp").size(), 5u);
  std::filesystem::remove(ballast);
  EXPECT_EQ(fill(2), "");
  EXPECT_TRUE(KeptText(kFactory) == kept);
  EXPECT_FALSE(std::filesystem::exists(kOut + "_tmp"));
}

TEST_F(LogFileTest, FactoryModeCutsTheZerosThatAPowerCutLeft) {
  WriteFile(kOut, "text\n" + std::string(5000, '\0'));
  SetUpOutput(kFactory);
  Write("more\n");
  EXPECT_EQ(ReadFile(kOut), "text\nmore\n");
}

TEST_F(LogFileTest, FactoryModeArchivesFiveFilesAndKeepsTheNewestArchives) {
  // Archives to keep; rotations; what stands then; the first line in it.
  const std::tuple<size_t, int, std::vector<std::string>, int> cases[] = {
      {2, 4, {"", ".1", ".2", ".3", ".4"}, 0},          {2, 5, {"", "-0.tar.gz"}, 0},
      {2, 11, {"", "-0.tar.gz", "-1.tar.gz", ".1"}, 0}, {2, 15, {"", "-0.tar.gz", "-1.tar.gz"}, 10},
      {1, 12, {"", "-0.tar.gz", ".1", ".2"}, 10},       {0, 7, {"", ".1", ".2", ".3", ".4", ".5"}, 4},
  };
  for (const auto& [archives, rotations, suffixes, firstLine] : cases) {
    std::filesystem::remove_all(kDirectory);
    settings.maxFiles = archives;
    SetUpOutput(kFactory);
    std::string kept;
    for (int i = 0; i < 2 * rotations + 2; ++i) {  // two lines a file
      const std::string line = std::to_string(i) + std::string(500 - std::to_string(i).size(), '.');
      EXPECT_EQ(Write(line), "");
      kept += i >= firstLine ? line : "";
    }
    EXPECT_EQ(KeptText(kFactory), kept);
    std::vector<std::string> names;
    for (const std::string& suffix : suffixes) {
      names.push_back("cat-log" + suffix);
    }
    EXPECT_EQ(List(kDirectory), names);
    EXPECT_EQ(OwnerAndMode(kOut + "-0.tar.gz"), names[1] == "cat-log-0.tar.gz" ? "system:system 644" : "missing");
  }
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
  settings.maxFiles = 5;
  for (const auto& [suffixes, kept] : cases) {
    std::filesystem::remove_all(kDirectory);
    for (size_t i = 0; i < suffixes.size(); ++i) {
      const std::string path = kOut + suffixes[i];
      WriteFile(path, std::string(1, "ABCDEFG"[i]));
      if (path.find(".tar.gz") != std::string::npos) {  // an archive of one file that holds the text
        ASSERT_EQ(system(("cd /tmp; mv " + path + " cat-log.1; tar czf " + path + " cat-log.1").c_str()), 0);
      }
    }
    SetUpOutput(kFactory);
    EXPECT_EQ(KeptText(kFactory), kept);
    EXPECT_FALSE(std::filesystem::exists(kOut + "_tmp"));
    EXPECT_FALSE(std::filesystem::exists(kOut + ".5"));
  }
}
