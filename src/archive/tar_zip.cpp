#include "archive/tar_zip.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "archive/tar_format.h"
#include "archive/tar_stream.h"
#include "safestr/safestr.h"

namespace {

using TarFormat::kBlockSize;

constexpr size_t kPathBuffer = 256;
constexpr size_t kPrefixedNameBuffer = TarFormat::kMaxPrefixedName + 1;
constexpr size_t kPasswdBuffer = 1024;

// "/data/log/app.log" -> "app.log"
// "app.log"           -> "app.log"
// "/data/log/"        -> ""
const char* LastPart(const char* path) {
  const char* slash = strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

// prefix "crash", name "a.txt" -> "crash/a.txt", cut to 99 bytes
// prefix null, name "a.txt"    -> "a.txt"
const char* EntryName(const char* prefix, const char* name, char (&buffer)[kPrefixedNameBuffer]) {
  if (prefix == nullptr) return name;
  snprintf_s(buffer, sizeof(buffer), TarFormat::kMaxPrefixedName, "%s/%s", prefix, name);
  return buffer;
}

// The path was a regular file when it was examined, but another process may have put something else there since: a
// symbolic link must not lead out of the log directory and a fifo must not hold the daemon up.
int OpenRegularFile(const char* path) {
  const int fd = open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return -1;
  struct stat opened = {};
  if (fstat(fd, &opened) == 0 && S_ISREG(opened.st_mode)) return fd;
  close(fd);
  return -1;
}

// Reads up to `wanted` bytes; what the end of the file or an error leaves out stays as it is in `block`.
void ReadBlock(int fd, char* block, size_t wanted) {
  size_t filled = 0;
  while (filled < wanted) {
    const ssize_t got = read(fd, block + filled, wanted - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return;
    filled += static_cast<size_t>(got);
  }
}

void WriteBlock(gzFile archive, const char* block) {
  gzwrite(archive, block, static_cast<unsigned>(kBlockSize));
}

void AddFile(gzFile archive, const char* path, const char* name, int64_t size) {
  // The header has no room for more, and a size that differs from the data would spoil every entry behind it.
  const int64_t announced = std::min(size, TarFormat::kMaxFileSize);
  char header[kBlockSize] = {};
  write_header(header, name, announced);
  write_zip_content(archive, path, announced, header);
}

void AddDirectory(gzFile archive, const char* path, bool keepName) {
  if (!keepName) return tar_zip_dir_recursive(archive, path, nullptr);
  char copy[kPrefixedNameBuffer] = {};
  strncpy_s(copy, sizeof(copy), path, TarFormat::kMaxPrefixedName);
  const size_t length = strlen(copy);
  if (length > 0 && copy[length - 1] == '/') copy[length - 1] = '\0';
  tar_zip_dir_recursive(archive, path, LastPart(copy));
}

void AddPath(gzFile archive, const char* path, bool keepDirectoryName) {
  struct stat examined = {};
  if (path == nullptr || lstat(path, &examined) != 0) return;
  if (S_ISDIR(examined.st_mode)) return AddDirectory(archive, path, keepDirectoryName);
  if (S_ISREG(examined.st_mode)) AddFile(archive, path, LastPart(path), examined.st_size);
}

void AddDirectoryEntry(gzFile archive, const char* path, const char* prefix, const char* name) {
  struct stat examined = {};
  if (lstat(path, &examined) != 0) return;
  char buffer[kPrefixedNameBuffer] = {};
  if (S_ISDIR(examined.st_mode)) {
    const char* childPrefix = prefix == nullptr ? nullptr : EntryName(prefix, name, buffer);
    return tar_zip_dir_recursive(archive, path, childPrefix);
  }
  if (S_ISREG(examined.st_mode)) AddFile(archive, path, EntryName(prefix, name, buffer), examined.st_size);
}

// The reentrant look-up, as collectors archive on their own threads.
void GiveToSystemUser(const char* path) {
  struct passwd entry = {};
  struct passwd* found = nullptr;
  char buffer[kPasswdBuffer];
  if (getpwnam_r("system", &entry, buffer, sizeof(buffer), &found) != 0 || found == nullptr) return;
  const int ignored = chown(path, found->pw_uid, found->pw_gid);  // an archive of root's is better than none
  static_cast<void>(ignored);
}

}  // namespace

void write_header(char* header, const char* name, int64_t size) {
  using namespace TarFormat;
  memcpy(header + kName.offset, name, strnlen(name, kName.length));
  memcpy(header + kMode.offset, kModeText, kMode.length);
  memcpy(header + kOwner.offset, kOwnerText, kOwner.length);
  memcpy(header + kGroup.offset, kOwnerText, kGroup.length);
  snprintf_s(header + kSize.offset, kSize.length, kSize.length - 1, "%o", static_cast<uint32_t>(size));

  memset(header + kChecksum.offset, ' ', kChecksum.length);
  uint32_t sum = 0;
  for (size_t i = 0; i < kBlockSize; ++i) sum += static_cast<uint8_t>(header[i]);
  memset(header + kChecksum.offset, 0, kChecksum.length);
  snprintf_s(header + kChecksum.offset, kChecksum.length, kChecksum.length - 1, "%o", sum);
}

void write_zip_content(gzFile archive, const char* path, int64_t size, const char* header) {
  const int fd = OpenRegularFile(path);
  if (fd < 0) return;
  WriteBlock(archive, header);
  for (int64_t left = size; left > 0; left -= static_cast<int64_t>(kBlockSize)) {
    char block[kBlockSize] = {};
    ReadBlock(fd, block, static_cast<size_t>(std::min(left, static_cast<int64_t>(kBlockSize))));
    WriteBlock(archive, block);
  }
  close(fd);
}

void tar_zip_dir_recursive(gzFile archive, const char* directory, const char* prefix) {
  char path[kPathBuffer] = {};
  size_t length = strlen(directory);
  // Every path in a directory that leaves no room for "/" is too long as well; cut short it would name another file.
  if (length == 0 || length + 1 >= sizeof(path)) return;
  memcpy(path, directory, length + 1);
  if (path[length - 1] != '/') path[length++] = '/';

  DIR* stream = opendir(directory);
  if (stream == nullptr) return;
  while (const struct dirent* entry = readdir(stream)) {
    const char* name = entry->d_name;
    if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0) continue;
    const size_t room = sizeof(path) - length;
    if (strlen(name) >= room) continue;
    strncpy_s(path + length, room, name, room - 1);
    AddDirectoryEntry(archive, path, prefix, name);
  }
  closedir(stream);
}

void tar_zip_files(int32_t count, const char* const* paths, const char* archivePath, int32_t keepDirectoryName) {
  if (archivePath == nullptr) return;
  gzFile archive = gzopen(archivePath, "we");  // "e": not inherited by the processes that collectors start
  if (archive == nullptr) return;
  GiveToSystemUser(archivePath);
  for (int32_t i = 0; i < count; ++i) AddPath(archive, paths[i], keepDirectoryName != 0);
  const char zeros[kBlockSize] = {};
  WriteBlock(archive, zeros);
  gzclose(archive);
}
