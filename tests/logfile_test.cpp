#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <filesystem>
#include <map>
#include <memory>
#include <random>

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
    if (mode == kMapped) output = std::make_unique<MappedOutput>(settings, *this);
    if (mode == kFactory) output = std::make_unique<FactoryOutput>(settings, *this);
    return StandardErrorOf([&] { EXPECT_EQ(output->setupOutput(), result) << settings.outputFilePath; });
  }
  std::string Write(const std::string& text, bool lineDone = true, int result = 0) {
    return StandardErrorOf([&] { EXPECT_EQ(output->logcatWrite(text.data(), text.size(), lineDone), result); });
  }
  /// What the files of a mode hold, oldest first.
  static std::string KeptText(Mode mode) {
    return mode == kMapped ? DecodeAll(IndexedPaths(kDirectory)) : FactoryText(kOut);
  }

  LogOutput::Settings settings;
  std::string title;
  std::unique_ptr<LogOutput> output;
};

}  // namespace

TEST_F(LogFileTest, SetsUpDirectoriesFilesAndLinks) {
  const std::string first = kOut + ".I000.19000100-000000.gz";
  const auto setUpWithoutLocalTime = [&] {
    const FailNthCall fault("localtime", 1);
    return SetUpOutput(kMapped);
  };
  setUpWithoutLocalTime();
  EXPECT_EQ(IndexedPaths(kDirectory), std::vector<std::string>{first});
  EXPECT_EQ(OwnerAndMode("/data/log") + ' ' + OwnerAndMode(kDirectory), "root:root 775 root:system 775");
  EXPECT_EQ(OwnerAndMode(first), "root:system 664");
  EXPECT_EQ(std::filesystem::read_symlink(kOut), first);
  EXPECT_FALSE(std::filesystem::is_symlink(kOut + ".1"));

  std::filesystem::remove(kOut);
  WriteFile(kOut, "a plain file in the link's place");
  Write(std::string(600, 'a'));
  Write(std::string(600, 'b'));
  const std::vector<std::string> files = IndexedPaths(kDirectory);
  ASSERT_EQ(files.size(), 2u);
  EXPECT_EQ(files[1].substr(0, kOut.size() + 8), kOut + ".I001.20");
  EXPECT_EQ(std::filesystem::read_symlink(kOut), files[1]);
  EXPECT_EQ(std::filesystem::read_symlink(kOut + ".1"), first);

  // A name is taken by what the list of files lacks.
  output.reset();
  WriteFile("/data/other", "other");
  Shell("rm -r /data/log/*; mkdir /data/log/out; ln -s /data/other " + first);
  EXPECT_EQ(setUpWithoutLocalTime().find("error"), std::string::npos);
  EXPECT_EQ(List(kDirectory).size(), 3u);
  EXPECT_EQ(ReadFile("/data/other"), "other");
}

TEST_F(LogFileTest, BringsFilesToDiskWithTheirFirstTextAndAtTheirEnd) {
  for (const Mode mode : {kMapped, kFactory}) {
    std::filesystem::remove_all("/data/log");
    const FailNthCall syncs("sync", 1000);  // counts
    SetUpOutput(mode);
    EXPECT_EQ(syncs.count(), 0);
    for (const char c : {'a', 'b'}) Write(std::string(1000, c));
    output.reset();
    EXPECT_EQ(syncs.count(), 2 * 3 + 2) << "with its directory each; and those in which directories were made";
  }
}

TEST_F(LogFileTest, FollowsALinkThatOnlyRootCanHaveMade) {
  for (const std::string link : {"/data/log", kDirectory}) {
    for (const Mode mode : {kMapped, kFactory}) {
      Shell("rm -rf /data/*; mkdir -p /data/big /data/log/out; rm -r " + link + "; ln -s /data/big " + link);
      SetUpOutput(mode);
      std::string kept;
      for (char c = 'a'; c < 'g'; ++c) Write(kept.substr((kept += std::string(999, c) + "\n").size() - 1000));
      output.reset();
      EXPECT_TRUE(std::filesystem::is_symlink(link));
      EXPECT_EQ(OwnerAndMode(link == kDirectory ? "/data/big" : "/data/big/out"), "root:system 775") << link;
      EXPECT_EQ(OwnerAndMode(kOut + "-0.tar.gz"), mode == kFactory ? "system:system 644" : "missing");
      EXPECT_EQ(KeptText(mode), mode == kFactory ? kept : kept.substr(3000));
    }
  }
}

TEST_F(LogFileTest, RotatesBetweenLinesBeforeTheSizeIsReachedAndSetsAVanishedFileUpAgain) {
  const std::string a(1000, 'a'), b(24, 'b'), c(23, 'c'), d(1000, 'd'), longTitle(1500, 't');
  for (const Mode mode : {kMapped, kFactory}) {
    std::filesystem::remove_all("/data/log");
    title = "";
    SetUpOutput(mode);
    Write("one\n");
    Shell("cd /data/log/out; for f in cat-log*; do [ -L $f ] || { cp $f x; mv x $f; }; done");
    Write("two\n");
    const std::string held = mode == kMapped ? "two\n" : "";
    EXPECT_EQ(KeptText(mode) + held, "one\ntwo\n");
    std::filesystem::remove_all("/data/log");
    Write(a, false);
    EXPECT_EQ(OwnerAndMode(kDirectory), "root:system 775");
    Write(b);  // no rotation inside a line
    Write(c);
    Write(d, true);     // 1023 bytes in the file
    title = longTitle;  // longer than a file, yet it rotates nothing
    Write("\n");        // the 1024th
    output.reset();
    EXPECT_EQ(List(kDirectory).size(), mode == kMapped ? 5u : 3u);
    EXPECT_EQ(KeptText(mode), held + a + b + c + d + title + "\n");
  }
}

TEST_F(LogFileTest, KeepsTheNewestFilesOnly) {
  for (const char* index : {"997", "998", "999", "000", "001"}) {
    WriteFile(kOut + ".I" + index + ".20240131-235959.gz", "");
  }
  const FailNthCall unknown("type", 1);
  SetUpOutput(kMapped);
  const std::vector<std::string> files = IndexedPaths(kDirectory);
  ASSERT_EQ(files.size(), 4u);  // three, and the one just opened
  EXPECT_EQ(files[2].substr(0, kOut.size() + 6), kOut + ".I002.");
  EXPECT_EQ(files[3], kOut + ".I999.20240131-235959.gz");
}

TEST_F(LogFileTest, AStartRemovesFilesWithoutTextThatNobodyWrites) {
  const std::string zeros(65536, '\0'), texts[] = {"x", zeros, zeros + "x", "", zeros};
  for (size_t i = 0; i < 5; ++i) WriteFile(kOut + ".I00" + std::to_string(i) + ".20240131-235959.gz", texts[i]);
  settings.removeEmpty = true;
  settings.maxFiles = 4;
  const auto kept = [&] {
    SetUpOutput(kMapped);
    return Shell("cd /data/log/out; for f in *.gz; do echo -n ${f#*.} | head -c 4; done");
  };
  EXPECT_EQ(kept(), "I000I001I002I003");  // where 001 was, a gap would be
  const std::unique_ptr<LogOutput> living = std::move(output);
  EXPECT_EQ(kept(), "I000I001I002I003I004");
}

TEST_F(LogFileTest, TheFirstRotationRemovesTheFilesOfTheOtherMode) {
  const std::string a(1000, 'a'), b(1000, 'b');
  WriteFile("/data/log/out/foreign.gz.txt", "");
  Shell("cd /data/log/out; mkdir cat-log.dir.gz; touch cat-log.2 cat-log-3.tar.gz cat-log-7.tar.gz cat-log-old.txt.gz");
  SetUpOutput(kMapped);
  EXPECT_EQ(List(kDirectory).size(), 8u);
  Write(a);
  const std::string errors = Write(b);
  EXPECT_EQ(Lines(errors).size(), 9u) << errors;  // eight old names and one link are missing
  EXPECT_NE(errors.find("unlink [" + kOut + ".0] fail\n"), std::string::npos);
  EXPECT_EQ(Write(a), "");  // the second rotation looks for none
  EXPECT_EQ(List(kDirectory).size(), 7u);
  EXPECT_EQ(Shell("cd /data/log/out; ls -d cat-log cat-log.1 cat-log.I* *.gz.txt *.dir.gz | wc -l"), "7\n");

  SetUpOutput(kFactory);  // the links go, so that nothing is written through them
  EXPECT_EQ(ReadFile(kOut), "");
  EXPECT_EQ(KeptText(kMapped), a + b + a);
  Write(b);
  EXPECT_EQ(Write(a), "");
  EXPECT_TRUE(IndexedPaths(kDirectory).empty());
  EXPECT_EQ(KeptText(kFactory), b + a);
}

TEST_F(LogFileTest, ReportsWhatCannotBeSetUp) {
  Shell("mkdir -p " + kOut + ".1");
  Device::SetProperty("ro.crypto.type", "file");
  const std::string tooLong = "/data/" + std::string(249, 'x'), longName = "/data/log/out/" + std::string(256, 'x');
  const std::tuple<std::string, Mode, std::string, int> cases[] = {
      {"", kMapped, "bugreport dir is invalide.\ncreate bugreports dir error!!\n", 1},
      {"name", kMapped, "pend is invalide.\ncreate bugreports dir error!!\n", 1},
      {tooLong + "/log", kFactory,
       "mkdir_p dir[" + tooLong + "] err\nchmod dir[" + tooLong + "] err\nopen pdir error.\nopen file[" + tooLong +
           "/log] err\ncouldn't open output file!!\n",
       1},
      {longName, kFactory, "open file[" + longName + "] err\ncouldn't open output file!!\n", 1},
      {"/data/new/sub/log", kFactory,
       "mkdir_p: [/data/new] is not made by init: remove it before init is to, or that may ask for a wipe\n", 0},
      {kOut, kMapped, "refreshSymlink unlink [" + kOut + "] fail\nrefreshSymlink unlink [" + kOut + ".1] fail\n", 0},
  };
  for (const auto& [path, mode, errors, result] : cases) {
    settings.outputFilePath = path.c_str();
    EXPECT_EQ(SetUpOutput(mode, result), errors);
    std::string later;
    for (int i = 0; i < 100; ++i) later += Write("text\n");
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
  WriteFile(kOut, std::string(1000, 'a') + std::string(5000, '\0'));  // zeros as a power cut leaves them
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

  settings.rotateSizeKB = uint64_t{1} << 40;
  Shell("cd /data/log/out; rm cat-log; truncate -s 4294967290 cat-log; printf x >> cat-log");  // an archive holds no
                                                                                               // larger file
  SetUpOutput(kFactory);
  Write("kept\n");
  EXPECT_EQ(std::filesystem::file_size(kOut), 5u);
}

TEST_F(LogFileTest, NobodyInTheDirectoryHasAnotherFileWrittenOrGivenAway) {
  const std::string look = "cd /data/secret; stat -c '%U:%G %a' . shadow; ls; cat shadow";
  // While it writes, its directory becomes a link to one that has the live file under the same name.
  const std::string later =
      "cd /data/log; mkdir ../other; ln out/cat-log* ../other; ls ../other > ../before; mv out aside; ln -s ../other "
      "out;"
      "chown -h 2000 out";
  // What stands at the output, its directory or the packing directory, as a shell makes it.
  const std::string traps[] = {
      "",
      "ln -s /data/secret/shadow $O",
      "ln -s /data/secret/new $O",
      "ln /data/secret/shadow $O",
      "mkfifo $O",
      "rmdir /data/log/out; ln -s /data/secret /data/log/out; chown -h 2000 /data/log/out",
      "rmdir /data/log/out; ln -s /data/secret /data/log/out; chmod 775 /data/log",
      "rm -r /data/log; ln -s /data/secret /data/log; chmod 1777 /data",
      "mkdir ${O}_tmp; chmod 777 ${O}_tmp; ln -s /data/secret/shadow ${O}_tmp/unfinished.tar.gz",
      "ln -s /data/secret ${O}_tmp",
      "ln -s /data/secret/shadow $O.1; ln /data/secret/shadow $O.2",
      "mkdir $O.1; ln /data/secret/shadow $O.1/cat-log.1",
  };
  for (const std::string& trap : traps) {
    for (const Mode mode : {kMapped, kFactory}) {
      std::filesystem::remove_all("/data");
      WriteFile("/data/secret/shadow", "secret");
      Shell("chmod 600 /data/secret/*; chmod 700 /data/secret; mkdir -p /data/log/out; O=" + kOut + "; " + trap);
      SetUpOutput(mode);
      for (char c = 'a'; c < 'o'; ++c) {
        if (trap.empty() && c == 'd') Shell(later);
        Write(std::string(999, c) + "\n");
      }
      output.reset();
      EXPECT_EQ(trap.empty() ? Shell("ls /data/other | diff - /data/before") : "", "");
      EXPECT_EQ(Shell(look), "root:root 700\nroot:root 600\nshadow\nsecret") << trap;
      EXPECT_EQ(KeptText(mode).find("secret"), std::string::npos) << trap;
      EXPECT_EQ(KeptText(mode).back(), '\n') << trap;
    }
  }
}

/// While the chown command starts, a member of the group, who may write as ever, puts a link where the directory or
/// file was.
TEST_F(LogFileTest, NobodyPutsALinkInTheWayOfTheChownCommand) {
  WriteFile("/data/secret", "secret");
  WriteFile("/tmp/bin/chown",
            "#!/bin/sh\n"
            "P=$(readlink -f $2)\n"
            "[ ! $KIND $P ] || setpriv --reuid 2000 --regid 1000 --clear-groups sh -c \"mv $P /data/log/away\n"
            "ln -s /data/secret $P\"\n"
            "exec /bin/chown \"$@\"\n");
  Shell("chmod 755 /tmp/bin/chown");
  const std::string path = getenv("PATH");
  setenv("PATH", ("/tmp/bin:" + path).c_str(), 1);
  for (const std::string kind : {"-d", "-f"}) {
    setenv("KIND", kind.c_str(), 1);
    Shell("rm -rf /data/log; mkdir -m 775 /data/log; /bin/chown root:system /data/log");
    const std::string errors = SetUpOutput(kind == "-d" ? kMapped : kFactory);
    EXPECT_EQ(OwnerAndMode("/data/secret"), "root:root 644");
    EXPECT_EQ(OwnerAndMode("/data/log/away"), kind == "-d" ? "root:system 775" : "root:system 664") << errors;
  }
  setenv("PATH", path.c_str(), 1);
}

TEST_F(LogFileTest, FactoryModeKeepsWhatItCannotPack) {
  MountSmallDisk(kDirectory, 128);
  settings.maxFiles = 2;
  settings.rotateSizeKB = 8;
  SetUpOutput(kFactory);
  std::string kept;
  const auto fill = [&](int files) {
    std::string errors;
    for (int i = 0; i < 2 * files; ++i) {
      const std::string line = Noise(3999, kept.size()) + "\n";
      kept += line;
      errors += Write(line);
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

  // Nor may an archive that finds no place have the next five taken for its own.
  Shell("rm -r /data/log/out/*; mkdir -p " + kOut + "-0.tar.gz/x");
  settings.maxFiles = 1;
  SetUpOutput(kFactory);
  fill(11);
  std::filesystem::remove_all(kOut + "-0.tar.gz");
  fill(1);
  EXPECT_TRUE(KeptText(kFactory) == kept.substr(kept.size() - 7 * 8000));
}

TEST_F(LogFileTest, NoEmptyFilePushesTextOutWhileTheDiskIsFull) {
  MountSmallDisk(kDirectory, 300);
  settings.keepRefused = true;
  for (const Mode mode : {kMapped, kFactory}) {
    SetUpOutput(mode);
    std::string kept, refused;
    const auto offer = [&] {
      StandardErrorOf([&] { refused.erase(0, output->writeLines(refused.data(), refused.size())); });
    };
    for (char c = 'a'; c < 'p'; ++c) {  // a file each
      kept += std::string(999, c) + "\n";
      refused += kept.substr(kept.size() - 1000);
      offer();
      if (c > 'd') Shell("cat /dev/zero >> /data/log/out/ballast || true");
    }
    Shell("rm /data/log/out/ballast");
    offer();
    EXPECT_EQ(refused, "");
    SetUpOutput(mode);  // packs what could not be packed
    EXPECT_EQ(KeptText(mode), kept.substr(mode == kMapped ? 3000 : 0));
  }
}

/// Against a model: the plain renames, whatever somebody does meanwhile.
TEST_F(LogFileTest, FactoryModeArchivesFiveFilesAndKeepsTheNewestArchives) {
  const uint32_t groupWrites[] = {2, 7 << 16 | 1, ~0u, 7 << 16 | 4, ~0u, 5 << 16 | 0x20, ~0u};
  const auto name = [](int n) {
    return "cat-log" + (n == 0 ? "" : n < 6 ? "." + std::to_string(n) : "-" + std::to_string(n - 6) + ".tar.gz");
  };
  std::mt19937 random(3);
  for (int round = 0; round < Rounds(10); ++round) {
    Shell("cd /data; rm -rf *; touch secret; chmod 600 secret; mkdir backup");
    const int archives = static_cast<int>(settings.maxFiles = random() % 4);
    SetUpOutput(kFactory);
    EXPECT_EQ(setxattr(kDirectory, "system.posix_acl_default", groupWrites, round % 2 != 0 ? 28 : 4, 0), 0);
    std::map<int, std::string> model;  // the live file, five rotated ones, archives
    const auto shift = [&](int from, int to) {
      for (; to > from; --to) {
        if (model.count(to - 1) != 0) model[to] = model[to - 1];
        model.erase(to - 1);
      }
    };
    int links = 1;
    for (int step = 0; step < 40; ++step) {
      const std::string line = std::to_string(step) + std::string(990, '.') + "\n";
      Write(line);
      shift(0, 5);
      if (archives > 0 && model.count(5) != 0) {
        shift(6, 5 + archives);
        model[6] = model[5] + model[4] + model[3] + model[2] + model[1];
        model.erase(model.begin(), model.find(6));
      }
      model[0] = line;
      if (const auto chance = random() % 8; chance == 0) {
        SetUpOutput(kFactory);
      } else if (chance == 1) {
        Shell("find /data/log/out -name 'cat-log.?' -perm 664 -exec ln -ft /data/backup {} +");
      } else if (chance == 2 && archives > 0 && model.count(1) != 0) {
        Shell("ln -f /data/secret " + kOut + ".1");
        model[1] = "";
        ++links;
      } else if (const int gone = chance < 5 ? 6 + static_cast<int>(random() % 3) : 1; chance < 6) {
        model.erase(gone);
        std::filesystem::remove(std::string(kDirectory) + '/' + name(gone));
      }
      std::vector<std::string> names = List(kDirectory, "moved");
      for (const auto& [number, text] : model) names.push_back(name(number));
      std::sort(names.begin(), names.end());
      ASSERT_EQ(List(kDirectory), names) << step;
    }
    std::string text;
    for (auto file = model.rbegin(); file != model.rend(); ++file) text += file->second;
    EXPECT_TRUE(KeptText(kFactory) == text);
    EXPECT_EQ(Shell("stat -c %h /data/secret"), std::to_string(links) + "\n");
    EXPECT_EQ(OwnerAndMode(kOut + "-0.tar.gz"), model.count(6) != 0 ? "system:system 644" : "missing");
  }
}

TEST_F(LogFileTest, FactoryModeGoesOnWhereAProcessDied) {
  // Files as they stand after each step of a rotation that was interrupted, the oldest first. Each holds one letter.
  const std::string run = "_tmp/cat-log.", packed = "_tmp/packed.tar.gz";
  const std::vector<std::string> cases[] = {
      {"-0.tar.gz", ".5", ".3", ".2", ".1", ""},
      {"-0.tar.gz", ".5", ".4", ".3", ".2", ".1"},
      {"-0.tar.gz", run + "5", run + "4", ".3", ".2", ".1"},
      {"-0.tar.gz", run + "5", run + "4", run + "3", run + "2", run + "1"},
      {"-0.tar.gz", packed},
      {"-4.tar.gz", "-3.tar.gz", "-2.tar.gz", "-1.tar.gz", packed},
  };
  settings.maxFiles = 5;
  for (const auto& suffixes : cases) {
    std::filesystem::remove_all(kDirectory);
    std::string kept;
    for (const std::string& suffix : suffixes) {
      const std::string path = kOut + suffix;
      kept += static_cast<char>('A' + kept.size());
      WriteFile(path, kept.substr(kept.size() - 1));
      if (path.back() == 'z') Shell("cd /tmp; mv " + path + " cat-log.1; tar czf " + path + " cat-log.1");
    }
    // What may lie beside them.
    if (suffixes.back() == run + "1") WriteFile(kOut + "_tmp/unfinished.tar.gz", "torn");
    if (suffixes.back() == packed) WriteFile(kOut + run + "4", "packed already");
    SetUpOutput(kFactory);
    EXPECT_EQ(KeptText(kFactory), kept);
    EXPECT_FALSE(std::filesystem::exists(kOut + "_tmp") || std::filesystem::exists(kOut + ".5"));
  }
}
