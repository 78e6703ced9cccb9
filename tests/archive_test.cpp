#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "archive/tar_stream.h"
#include "archive/tar_zip.h"
#include "device.h"
#include "fault_injection.h"

using namespace Device;

namespace {

const char kArchive[] = "/tmp/packed.tar.gz";

std::string Text(size_t size) {
  std::string text(size, '\0');
  for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * i / 7 + i);
  return text;
}

std::string Unzip() {
  return Shell("gzip -dc /tmp/packed.tar.gz");
}

/// Packs and returns the names in the archive.
std::vector<std::string> Pack(const std::vector<const char*>& paths, int keepDirectoryName) {
  const auto descriptors = List("/proc/self/fd").size();
  EXPECT_TRUE(tar_zip_files(static_cast<int32_t>(paths.size()), paths.data(), kArchive, keepDirectoryName));
  EXPECT_EQ(List("/proc/self/fd").size(), descriptors);
  return Lines(Shell("tar tzf /tmp/packed.tar.gz"));
}

TEST(Archive, ByteForByte) {
  WriteFile("/tmp/other", "other");
  ASSERT_EQ(symlink("other", kArchive), 0);  // what stands there is replaced
  for (const int32_t count : {0, -1}) EXPECT_TRUE(tar_zip_files(count, nullptr, kArchive, 0));
  EXPECT_EQ(Unzip(), std::string(512, '\0'));
  const char path[] = "/tmp/in/\xC3\xA4.log";  // bytes above 127 count unsigned in the sum
  WriteFile(path, Text(1000));
  const auto field = [](const char* text, size_t length) { return text + std::string(length - strlen(text), '\0'); };
  const std::string header = field("\xC3\xA4.log", 100) + field("100666 ", 8) + field("     0 ", 8) +
                             field("     0 ", 8) + field("1750", 12) + field("", 12) + field("3727", 8) +
                             field("", 356);
  Pack({path}, 0);
  EXPECT_EQ(Unzip(), header + Text(1000) + std::string(24 + 512, '\0'));
  EXPECT_EQ(OwnerAndMode(kArchive), "system:system 644");
  EXPECT_EQ(ReadFile("/tmp/other") + OwnerAndMode("/tmp/other"), "otherroot:root 644");
}

TEST(Archive, PacksFilesInOrderAndPassesOverAllElse) {
  Shell("mkdir /tmp/in && cd /tmp/in && touch a b && ln -s . link && mkfifo fifo");
  ASSERT_EQ(chdir("/tmp/in"), 0);  // a path without "/" is its own name
  EXPECT_EQ(Pack({nullptr, "/tmp/in/b", "", "missing", "link", "fifo", "/dev/null", "a"}, 1),
            (std::vector<std::string>{"b", "a"}));
}

// What another process may do to a file between its examination and its packing.
TEST(Archive, FileChangesWhileItIsPacked) {
  WriteFile("/tmp/in/file", Text(600));
  ASSERT_EQ(chdir("/tmp/in"), 0);
  Shell("ln -s file link && mkfifo fifo");
  const auto content = [](const char* path, int64_t size, bool whole) {
    gzFile archive = gzopen(kArchive, "w");
    EXPECT_EQ(write_zip_content(archive, path, size), whole) << path;
    EXPECT_EQ(gzclose(archive), Z_OK);
    return Unzip();
  };
  EXPECT_EQ(content("file", 1025, true), Text(600) + std::string(1536 - 600, '\0')) << "shrank";
  EXPECT_EQ(content("file", 550, true), Text(550) + std::string(1024 - 550, '\0')) << "grew";
  for (const char* gone : {"missing", "link", "fifo", ".", "/proc/self/mem"}) EXPECT_EQ(content(gone, 600, false), "");
}

// Whoever deletes what was packed trusts the result.
TEST(Archive, IsWholeAndOnDiskOrGone) {
  MountSmallDisk("/tmp/disk", 64);
  WriteFile("/tmp/in/small", "text");
  WriteFile("/tmp/in/huge", "");
  Shell("head -c 200000 /dev/urandom > /tmp/in/large && truncate -s 4G /tmp/in/huge");
  const auto expect = [](const char* path, bool whole, const char* what) {
    EXPECT_EQ(tar_zip_files(1, &path, "/tmp/disk/archive", 0), whole) << what;
    EXPECT_EQ(access("/tmp/disk/archive", F_OK) == 0, whole) << what;
  };
  expect("/tmp/in/large", false, "the disk fills while a file is packed");
  expect("/tmp/in/huge", false, "larger than a header can tell");
  WriteFile("/tmp/disk/archive", std::string(64 * 1024, 'b'));
  expect("/tmp/in/small", true, "the old archive makes room");
  {
    const FailNthCall fault("sync", 1);
    expect("/tmp/in/small", false, "not on disk");
    EXPECT_TRUE(fault.happened());
  }
  WriteFile("/tmp/disk/ballast", std::string(64 * 1024, 'b'));
  expect("/tmp/in/small", false, "the disk is full at the close");
  const char* path = "/tmp/in/small";
  EXPECT_FALSE(tar_zip_files(1, &path, "/tmp/disk", 0)) << "a directory stands there";
}

// As programs that unpack archives see it, too.
TEST(Archive, DirectoryGivesTheFilesBelowIt) {
  const std::string deep(120, 'd'), name(121, 'n');
  const std::string longest = "/tmp/in/logs/" + deep + "/" + name;  // 255 bytes
  for (const int size : {0, 1, 512, 513, 100003})
    WriteFile("/tmp/in/logs/" + std::to_string(size), Text(static_cast<size_t>(size)));
  WriteFile("/tmp/in/logs/sub/" + std::string(90, 'n'), Text(1000));  // 99 bytes with its directories
  Pack({"/tmp/in/logs"}, 1);
  for (const std::string extract : {"tar xzpf", "bsdtar xzpf", "python3 -m tarfile -e"}) {
    if (system(("command -v " + extract.substr(0, extract.find(' '))).c_str()) != 0) continue;
    Shell("mkdir /tmp/out && cd /tmp/out && " + extract + " ../packed.tar.gz && diff -r ../in/logs logs");
    EXPECT_EQ(Shell("stat -c %a,%u,%g,%Y /tmp/out/logs/513; rm -r /tmp/out"), "666,0,0,0\n") << extract;
  }
  ASSERT_EQ(chdir("/tmp/in"), 0);
  Shell("rm -r logs/*; mkdir logs/empty logs/" + deep + "; ln -s .. logs/loop; touch logs/a " + longest);
  for (const char* path : {"/tmp/in/logs", "/tmp/in/logs/", "logs"}) {
    auto names = Pack({path}, 0), named = Pack({path}, 1);
    std::sort(names.begin(), names.end());
    std::sort(named.begin(), named.end());
    EXPECT_EQ(names, (std::vector<std::string>{"a", name.substr(0, 100)})) << path;
    EXPECT_EQ(named, (std::vector<std::string>{"logs/a", ("logs/" + deep).substr(0, 99)})) << path;
  }
  WriteFile(longest + "n", "text");
  const char* path = "/tmp/in/logs";
  EXPECT_FALSE(tar_zip_files(1, &path, kArchive, 0)) << "a file with a path that is too long";
}

}  // namespace
