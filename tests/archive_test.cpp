#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "archive/tar_format.h"
#include "archive/tar_stream.h"
#include "archive/tar_zip.h"

namespace {

namespace fs = std::filesystem;
using TarFormat::kBlockSize;
using Entries = std::vector<std::pair<std::string, std::string>>;  // name and data

const char kArchive[] = "/tmp/packed.tar.gz";

std::string Text(size_t size) {
  std::string text(size, '\0');
  for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * i / 7 + i);
  return text;
}

std::string MakeFile(const std::string& path, const std::string& text) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

std::string Unzip() {
  std::string stream;
  char chunk[4096];
  gzFile file = gzopen(kArchive, "r");
  for (int got = 0; (got = gzread(file, chunk, sizeof chunk)) > 0;) stream.append(chunk, static_cast<size_t>(got));
  EXPECT_EQ(gzclose(file), Z_OK);
  return stream;
}

std::string Pack(const std::vector<const char*>& paths, int keepDirectoryName = 0) {
  const auto descriptors = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
  const auto before = descriptors();
  tar_zip_files(static_cast<int32_t>(paths.size()), paths.data(), kArchive, keepDirectoryName);
  EXPECT_EQ(descriptors(), before);
  return Unzip();
}

// Reads entries up to the first zero block, which has to be the only one and the last.
Entries Parse(const std::string& stream) {
  Entries entries;
  size_t at = 0;
  while (at < stream.size() && stream[at] != '\0') {
    std::string header = stream.substr(at, kBlockSize);
    const size_t size = strtoul(header.c_str() + TarFormat::kSize.offset, nullptr, 8);
    const unsigned long checksum = strtoul(header.c_str() + TarFormat::kChecksum.offset, nullptr, 8);
    header.replace(TarFormat::kChecksum.offset, TarFormat::kChecksum.length, "        ");
    EXPECT_EQ(checksum, std::accumulate(header.begin(), header.end(), 0UL,
                                        [](unsigned long sum, unsigned char byte) { return sum + byte; }));
    entries.emplace_back(header.substr(0, TarFormat::kName.length).c_str(), stream.substr(at + kBlockSize, size));
    at += (1 + (size + kBlockSize - 1) / kBlockSize) * kBlockSize;
  }
  EXPECT_EQ(stream.substr(std::min(at, stream.size())), std::string(kBlockSize, '\0'));
  return entries;
}

TEST(Archive, HeaderByteForByte) {
  const std::string path = MakeFile("/tmp/in/app.log", Text(1000));
  const auto field = [](const char* text, size_t length) { return text + std::string(length - strlen(text), '\0'); };
  const std::string expected = field("app.log", 100) + field("100666 ", 8) + field("     0 ", 8) + field("     0 ", 8) +
                               field("1750", 12) + field("", 12) + field("3661", 8) + field("", 356);
  MakeFile(kArchive, Text(100000));  // what stood there is overwritten
  EXPECT_EQ(Pack({path.c_str()}), expected + Text(1000) + std::string(24 + 512, '\0'));
}

TEST(Archive, SizesFillBlocksAndNamesAreCut) {
  fs::create_directory("/tmp/in");
  ASSERT_EQ(chdir("/tmp/in"), 0);  // a path without "/" is its own name
  // Bytes above 127 count unsigned in the sum.
  const std::string name = "\xC3\xA4" + std::string(97, 'n');
  const Entries files = {
      {"empty", ""}, {"1", Text(1)}, {name, Text(512)}, {name + "a", Text(513)}, {name + "bc", Text(1000)}};
  std::vector<const char*> paths;
  for (const auto& [path, text] : files) {
    std::ofstream(path) << text;
    paths.push_back(path.c_str());
  }
  const std::string stream = Pack(paths);
  EXPECT_EQ(stream.size(), (5 + 0 + 1 + 1 + 2 + 2 + 1) * kBlockSize);
  Entries expected = files;
  expected.back().first.pop_back();  // 101 bytes
  EXPECT_EQ(Parse(stream), expected);
}

TEST(Archive, PassesOverWhatIsNoReadableFile) {
  MakeFile("/tmp/in/first", "1");
  MakeFile("/tmp/in/last", "2");
  MakeFile("/tmp/in/secret", "");
  ASSERT_EQ(symlink("/tmp/in/first", "/tmp/in/link"), 0);
  ASSERT_EQ(mkfifo("/tmp/in/fifo", 0666), 0);
  ASSERT_EQ(chmod("/tmp/in/secret", 0), 0);
  ASSERT_EQ(chmod("/tmp", 0777), 0);
  ASSERT_EQ(seteuid(1000), 0);  // root may read everything
  const std::string stream = Pack({nullptr, "/tmp/in/first", "/tmp/in/missing", "/tmp/in/link", "/tmp/in/fifo",
                                   "/tmp/in/secret", "/dev/null", "", "/tmp/in/last"});
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(Parse(stream), (Entries{{"first", "1"}, {"last", "2"}}));
}

// What another process may do to a file between its examination and its packing.
TEST(Archive, FileChangesWhileItIsPacked) {
  MakeFile("/tmp/in/file", Text(600));
  ASSERT_EQ(symlink("/tmp/in/file", "/tmp/in/link"), 0);
  ASSERT_EQ(mkfifo("/tmp/in/fifo", 0666), 0);
  const std::string header(kBlockSize, 'h');
  const auto content = [&](const char* path, int64_t size) {
    gzFile archive = gzopen(kArchive, "w");
    write_zip_content(archive, path, size, header.c_str());
    EXPECT_EQ(gzclose(archive), Z_OK);
    return Unzip();
  };
  EXPECT_EQ(content("/tmp/in/file", 1025), header + Text(600) + std::string(1536 - 600, '\0')) << "shrank";
  EXPECT_EQ(content("/tmp/in/file", 550), header + Text(550) + std::string(1024 - 550, '\0')) << "grew";
  for (const char* gone : {"/tmp/in/missing", "/tmp/in/link", "/tmp/in/fifo", "/tmp/in"}) {
    EXPECT_EQ(content(gone, 600), "") << gone;
  }
}

TEST(Archive, DirectoryGivesTheFilesBelowIt) {
  const std::string deep(120, 'd');
  const std::string name(121, 'n');  // its path has 255 bytes
  MakeFile("/tmp/in/logs/a", "1");
  MakeFile("/tmp/in/logs/sub/b", "2");
  MakeFile("/tmp/in/logs/" + deep + "/" + name, "3");
  MakeFile("/tmp/in/logs/" + deep + "/" + name + "n", "too long");
  fs::create_directory("/tmp/in/logs/empty");
  ASSERT_EQ(symlink("/tmp/in", "/tmp/in/logs/loop"), 0);
  ASSERT_EQ(chdir("/tmp/in"), 0);
  const auto walk = [](const char* path, int keepName) {
    Entries entries = Parse(Pack({path}, keepName));
    std::sort(entries.begin(), entries.end());
    return entries;
  };
  EXPECT_EQ(walk("/tmp/in/logs", 0), (Entries{{"a", "1"}, {"b", "2"}, {name.substr(0, 100), "3"}}));
  const Entries prefixed = {{"logs/a", "1"}, {("logs/" + deep).substr(0, 99), "3"}, {"logs/sub/b", "2"}};
  for (const char* path : {"/tmp/in/logs", "/tmp/in/logs/"}) EXPECT_EQ(walk(path, 1), prefixed) << path;
  EXPECT_EQ(walk("logs", 1).front().first, "logs/a");

  const std::string tooLong = "/tmp/in/" + deep + "/" + deep + deep;
  MakeFile(tooLong + "/file", "no room for its path");
  EXPECT_EQ(walk(tooLong.c_str(), 0), Entries());
}

TEST(Archive, WithoutEntriesAndWithoutAnArchive) {
  for (const int32_t count : {0, -1}) {
    tar_zip_files(count, nullptr, kArchive, 0);
    EXPECT_EQ(Unzip(), std::string(kBlockSize, '\0'));
  }
  struct stat archive = {};
  ASSERT_EQ(stat(kArchive, &archive), 0);
  EXPECT_EQ(archive.st_uid, 1000U);
  EXPECT_EQ(archive.st_gid, 1000U);

  const char* paths[] = {kArchive};
  tar_zip_files(1, paths, nullptr, 0);
  tar_zip_files(1, paths, "/tmp/missing/a.tar.gz", 0);
  EXPECT_FALSE(fs::exists("/tmp/missing"));
}

// Programs that read archives: how they list one and how they unpack it.
class ArchiveReader : public testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(ArchiveReader, ListsAndExtracts) {
  const auto& [list, extract] = GetParam();
  const auto run = [](const std::string& command) { return system(command.c_str()); };
  const std::string program = list.substr(0, list.find(' '));
  if (run("command -v " + program) != 0) GTEST_SKIP() << program;

  for (const int size : {0, 1, 512, 513, 100003}) {
    MakeFile("/tmp/in/logs/" + std::to_string(size), Text(static_cast<size_t>(size)));
  }
  MakeFile("/tmp/in/logs/sub/" + std::string(89, 'n'), Text(1000));  // 98 bytes with its directories
  Pack({"/tmp/in/logs"}, 1);
  fs::create_directory("/tmp/out");
  ASSERT_EQ(chdir("/tmp/out"), 0);
  EXPECT_EQ(run("test $(" + list + " ../packed.tar.gz | grep -c logs/) = 6"), 0);
  EXPECT_EQ(run(extract + " ../packed.tar.gz && diff -r /tmp/in/logs logs"), 0);
  EXPECT_EQ(run("test $(stat -c %a,%u,%g,%Y logs/513) = 666,0,0,0"), 0);
}

INSTANTIATE_TEST_SUITE_P(Readers, ArchiveReader,
                         testing::Values(std::pair("tar tzvf", "tar xzpf"), std::pair("bsdtar tzvf", "bsdtar xzpf"),
                                         std::pair("python3 -m tarfile -l", "python3 -m tarfile -e")));

}  // namespace
