#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <utility>

#include "quillog/pile/folder.h"

namespace {

/// Of a directory; what has more is no place for logs.
constexpr size_t kMostNames = 1000000;

/// A change within one tick of the file system's clock does not show: FAT's tick takes two seconds.
constexpr int64_t kSettled = 3;

std::string Numbers(const struct stat& status) {
  std::string text;
  for (const int64_t number :
       {static_cast<int64_t>(status.st_dev), static_cast<int64_t>(status.st_ino),
        static_cast<int64_t>(status.st_mtim.tv_sec), static_cast<int64_t>(status.st_mtim.tv_nsec),
        static_cast<int64_t>(status.st_ctim.tv_sec), static_cast<int64_t>(status.st_ctim.tv_nsec)}) {
    text += std::to_string(number) + ' ';
  }
  return text;
}

/// A directory of the file system: one that was named, and the way down from it, on which no link is followed.
class DirectoryFolder : public Folder {
 public:
  DirectoryFolder(std::string named, std::vector<std::string> wayDown)
      : root(std::move(named)), below(std::move(wayDown)) {}

  bool List(Listing* listing) const override {
    const int fd = OpenDirectory(O_RDONLY);
    DIR* stream = fd >= 0 ? fdopendir(fd) : nullptr;
    if (stream == nullptr) {
      const OpenFile closed(fd);
      return false;
    }
    const int error = ReadAll(stream, listing);
    closedir(stream);
    errno = error;
    return error == 0;
  }

  std::string Mark() const override {
    const OpenFile directory(OpenDirectory(O_PATH));
    struct stat status = {};
    if (directory.fd < 0 || fstat(directory.fd, &status) != 0) {
      return {};
    }
    const int64_t age = time(nullptr) - status.st_ctim.tv_sec;
    return age > -kSettled && age < kSettled ? std::string() : Numbers(status);
  }

  ByteRange Open(const std::string& name) const override {
    const OpenFile directory(OpenDirectory(O_PATH));
    // A fifo would keep the open waiting, a terminal would become ours.
    const int fd = directory.fd < 0
                       ? -1
                       : openat(directory.fd, name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW);
    if (fd < 0) {
      return {};
    }
    auto file = std::make_shared<const OpenFile>(fd);
    struct stat status = {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
      errno = EINVAL;
      return {};
    }
    return {std::move(file), 0, ByteRange::kToTheEnd};
  }

  std::shared_ptr<const Folder> Sub(const std::string& name) const override {
    std::vector<std::string> way = below;
    way.push_back(name);
    return std::make_shared<DirectoryFolder>(root, std::move(way));
  }

  bool IsLive() const override { return true; }

 private:
  int OpenDirectory(int how) const {
    int fd = open(root.c_str(), (below.empty() ? how : O_PATH) | O_DIRECTORY | O_CLOEXEC);
    for (size_t i = 0; fd >= 0 && i < below.size(); ++i) {
      const OpenFile above(fd);
      const bool isLast = i + 1 == below.size();
      fd = openat(fd, below[i].c_str(), (isLast ? how : O_PATH) | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    }
    return fd;
  }

  /// 0, or why not everything could be read.
  static int ReadAll(DIR* stream, Listing* listing) {
    listing->clear();
    for (;;) {
      errno = 0;
      const dirent* entry = readdir(stream);
      if (entry == nullptr) {
        return errno;
      }
      const std::string name = entry->d_name;
      struct stat status = {};
      if (name == "." || name == ".." || fstatat(dirfd(stream), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        continue;
      }
      if (listing->size() >= kMostNames) {
        return EOVERFLOW;
      }
      if (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)) {
        (*listing)[name] = {S_ISDIR(status.st_mode), static_cast<uint64_t>(status.st_size), status.st_mtim.tv_sec,
                            status.st_dev, status.st_ino};
      }
    }
  }

  const std::string root;
  const std::vector<std::string> below;
};

}  // namespace

std::shared_ptr<const Folder> LiveFolder(const std::string& path) {
  return std::make_shared<DirectoryFolder>(path, std::vector<std::string>());
}
