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
#include "thread/thread_base.h"

namespace {

using TarFormat::kBlockSize;

constexpr size_t kPathBuffer = 256;
constexpr size_t kPrefixedNameBuffer = TarFormat::kMaxPrefixedName + 1;
constexpr size_t kPasswdBuffer = 1024;
constexpr mode_t kArchiveMode = 0644;  // a default ACL of the directory gives no more

/// "/data/log/app.log" -> "app.log"
/// "app.log"           -> "app.log"
/// "/data/log/"        -> ""
const char* LastPart(const char* path) {
  const char* slash = strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

/// prefix "crash", name "a.txt" -> "crash/a.txt", cut to 99 bytes
/// prefix null, name "a.txt"    -> "a.txt"
const char* EntryName(const char* prefix, const char* name, char (&buffer)[kPrefixedNameBuffer]) {
  if (prefix == nullptr) {
    return name;
  }
  snprintf_s(buffer, sizeof(buffer), TarFormat::kMaxPrefixedName, "%s/%s", prefix, name);
  return buffer;
}

/// The path was a regular file when it was examined, but another process may have put something else there since: a
/// symbolic link must not lead out of the log directory and a fifo must not hold the daemon up.
int OpenRegularFile(const char* path) {
  const int fd = open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  struct stat opened = {};
  if (fd < 0 || (fstat(fd, &opened) == 0 && S_ISREG(opened.st_mode))) {
    return fd;
  }
  close(fd);
  return -1;
}

/// Reads up to `wanted` bytes; what the end of the file leaves out stays as it is in `block`. False: a read failed.
bool ReadBlock(int fd, char* block, size_t wanted) {
  ssize_t got = 1;
  for (size_t filled = 0; filled < wanted && got != 0; filled += got > 0 ? static_cast<size_t>(got) : 0) {
    got = read(fd, block + filled, wanted - filled);
    if (got < 0 && errno != EINTR) {
      return false;
    }
  }
  return true;
}

bool WriteBlock(gzFile archive, const char* block) {
  return gzwrite(archive, block, static_cast<unsigned>(kBlockSize)) == static_cast<int>(kBlockSize);
}

/// Tells whether the call that just failed found nothing at its path.
bool IsMissing() {
  return errno == ENOENT || errno == ENOTDIR;
}

bool AddFile(gzFile archive, const char* path, const char* name, int64_t size) {
  char header[kBlockSize] = {};
  write_header(header, name, size);
  return size <= TarFormat::kMaxFileSize && WriteBlock(archive, header) && write_zip_content(archive, path, size);
}

/// "/data/log/crash/" -> "crash", of the path's first 99 bytes
const char* DirectoryName(const char* path, char (&buffer)[kPrefixedNameBuffer]) {
  strncpy_s(buffer, sizeof(buffer), path, TarFormat::kMaxPrefixedName);
  const size_t length = strlen(buffer);
  if (length > 0 && buffer[length - 1] == '/') {
    buffer[length - 1] = '\0';
  }
  return LastPart(buffer);
}

/// Adds what stands at `path`: a file as `name`, or the files of a directory, with `prefix` before their names if it is
/// not null. Passes over everything else.
bool AddPath(gzFile archive, const char* path, const char* name, const char* prefix) {
  struct stat examined = {};
  if (lstat(path, &examined) != 0) {
    return IsMissing();
  }
  if (S_ISDIR(examined.st_mode)) {
    return tar_zip_dir_recursive(archive, path, prefix);
  }
  return !S_ISREG(examined.st_mode) || AddFile(archive, path, name, examined.st_size);
}

/// Never what stands at the path, nor what a link there names: who may write in the directory must not choose the file
/// that root fills and gives away.
int CreateArchive(const char* path) {
  unlink(path);
  return open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kArchiveMode);
}

/// The reentrant look-up, as collectors archive on their own threads.
void GiveToSystemUser(int fd) {
  struct passwd entry = {};
  struct passwd* found = nullptr;
  char buffer[kPasswdBuffer];
  if (getpwnam_r("system", &entry, buffer, sizeof(buffer), &found) == 0 && found != nullptr) {
    const int ignored = fchown(fd, found->pw_uid, found->pw_gid);  // an archive of root's is better than none
    static_cast<void>(ignored);
  }
}

/// A gzip stream over a descriptor of its own: gzclose closes that one, and the archive is still to be synced.
gzFile OpenStream(int fd) {
  const int copy = fcntl(fd, F_DUPFD_CLOEXEC, 0);
  gzFile archive = copy >= 0 ? gzdopen(copy, "w") : nullptr;
  if (archive == nullptr && copy >= 0) {
    close(copy);
  }
  return archive;
}

bool PackPaths(int fd, int32_t count, const char* const* paths, bool keepDirectoryName) {
  gzFile archive = OpenStream(fd);
  if (archive == nullptr) {
    return false;
  }
  bool whole = true;
  for (int32_t i = 0; whole && i < count; ++i) {
    char buffer[kPrefixedNameBuffer] = {};
    whole = paths[i] == nullptr || AddPath(archive, paths[i], LastPart(paths[i]),
                                           keepDirectoryName ? DirectoryName(paths[i], buffer) : nullptr);
  }
  const char zeros[kBlockSize] = {};
  whole = whole && WriteBlock(archive, zeros);
  return gzclose(archive) == Z_OK && whole && fsync(fd) == 0;
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
  for (size_t i = 0; i < kBlockSize; ++i) {
    sum += static_cast<uint8_t>(header[i]);
  }
  memset(header + kChecksum.offset, 0, kChecksum.length);
  snprintf_s(header + kChecksum.offset, kChecksum.length, kChecksum.length - 1, "%o", sum);
}

bool write_zip_content(gzFile archive, const char* path, int64_t size) {
  const int fd = OpenRegularFile(path);
  if (fd < 0) {
    return false;
  }
  bool whole = true;
  for (int64_t left = size; whole && left > 0; left -= static_cast<int64_t>(kBlockSize)) {
    char block[kBlockSize] = {};
    whole = !ThreadBase::currentStopRequested() &&
            ReadBlock(fd, block, static_cast<size_t>(std::min(left, static_cast<int64_t>(kBlockSize)))) &&
            WriteBlock(archive, block);
  }
  close(fd);
  return whole;
}

bool tar_zip_dir_recursive(gzFile archive, const char* directory, const char* prefix) {
  char path[kPathBuffer] = {};
  size_t length = strlen(directory);
  // Every path in a directory that leaves no room for "/" is too long as well; cut short it would name another file.
  if (length == 0 || length + 1 >= sizeof(path)) {
    return false;
  }
  memcpy(path, directory, length + 1);
  if (path[length - 1] != '/') {
    path[length++] = '/';
  }

  DIR* stream = opendir(directory);
  if (stream == nullptr) {
    return IsMissing();
  }
  bool whole = true;
  errno = 0;
  while (const struct dirent* entry = whole ? readdir(stream) : nullptr) {
    const size_t room = sizeof(path) - length;
    if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) {
      char buffer[kPrefixedNameBuffer] = {};
      const char* name = EntryName(prefix, entry->d_name, buffer);
      whole = strlen(entry->d_name) < room && strncpy_s(path + length, room, entry->d_name, room - 1) == 0 &&
              AddPath(archive, path, name, prefix == nullptr ? nullptr : name);
      errno = 0;
    }
  }
  whole = whole && errno == 0;  // readdir tells its end from a failure by this alone
  closedir(stream);
  return whole;
}

bool tar_zip_files(int32_t count, const char* const* paths, const char* archivePath, int32_t keepDirectoryName) {
  const int fd = archivePath == nullptr ? -1 : CreateArchive(archivePath);
  if (fd < 0) {
    return false;
  }
  GiveToSystemUser(fd);
  const bool whole = PackPaths(fd, count, paths, keepDirectoryName != 0);
  close(fd);
  if (!whole) {
    unlink(archivePath);
  }
  return whole;
}
