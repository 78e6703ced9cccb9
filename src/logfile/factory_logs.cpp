// Factory mode: a plain live file O, rotated through O.1 to O.5, five of which become the archive O-0.tar.gz.

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "archive/tar_zip.h"
#include "thread/interruptible.h"
#include "collect/quilbase.h"
#include "logfile/owner.h"

using namespace QuilCommon;

namespace {

constexpr int kRotatedFiles = 5;
constexpr mode_t kLiveFileCreateMode = 0640;
constexpr mode_t kLiveFileMode = 0664;
constexpr mode_t kTemporaryDirectoryMode = 0775;

/// A formatted path, freed at the end of the scope; null when there was no memory.
class Path {
 public:
  __attribute__((format(printf, 2, 3))) explicit Path(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    if (vasprintf(&text, format, arguments) < 0) {
      text = nullptr;
    }
    va_end(arguments);
  }
  ~Path() { free(text); }
  Path(const Path&) = delete;
  Path& operator=(const Path&) = delete;

  const char* get() const { return text; }
  char* release() {
    char* released = text;
    text = nullptr;
    return released;
  }
  bool exists() const { return text != nullptr && access(text, F_OK) == 0; }

 private:
  char* text = nullptr;
};

const char* BaseName(const char* path) {
  return strrchr(path, '/') + 1;
}

/// Renames; a failure other than a missing source is reported as `message`.
void RenameIfThere(const Path& from, const Path& to, const char* message) {
  if (from.get() != nullptr && to.get() != nullptr && rename(from.get(), to.get()) != 0 && errno != ENOENT) {
    perror(message);
  }
}

/// Brings a finished archive to disk: the files that it holds are deleted next, and both must not be lost together.
void SyncFile(const char* path) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    fsync(fd);
    close(fd);
  }
}

}  // namespace

int Quilbase::factoryWrite(const char* data, size_t len, bool lineDone) {
  if (data == nullptr) {
    return 1;
  }
  prepareWrite(len, lineDone);
  if (logFd < 0) {
    return 0;
  }
  for (size_t done = 0; done < len;) {
    const ssize_t written = writeOutput(logFd, data + done, len - done);
    if (written < 0) {
      fprintf(stderr, "%s: write fail\n", logFilePath != nullptr ? logFilePath : "(null)");
      closeLogFd();
      return 1;
    }
    done += static_cast<size_t>(written);
    curFileBytes += static_cast<size_t>(written);
  }
  return 0;
}

void Quilbase::openLogFileFactory() {
  if (outputFilePath == nullptr) {
    return;
  }
  if (logFilePath == nullptr && !adoptOutputPath()) {
    return;
  }
  // Links that mmap mode left would lead the text into one of its files.
  releaseSymlink(logFilePath);
  releaseSymlink(prevLinkPath);
  logFd = open(logFilePath, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kLiveFileCreateMode);
  if (logFd < 0) {
    fprintf(stderr, "open file[%s] err\n", logFilePath);
    return;
  }
  if (fchmod(logFd, kLiveFileMode) != 0) {
    fprintf(stderr, "fchmod file[%s] err\n", logFilePath);
  }
  changeOwner(logFilePath, "chown file");
  startFile();
}

/// The output path itself is the live file. False: no memory.
bool Quilbase::adoptOutputPath() {
  logFilePath = strdup(outputFilePath);
  return logFilePath != nullptr;
}

void Quilbase::rotateLogsFactory() {
  if (logFilePath == nullptr) {
    return;
  }
  closeLogFd();
  shiftRotatedFiles(kRotatedFiles);
  curFileBytes = 0;
  if (maxFiles != 0 && Path("%s.%d", logFilePath, kRotatedFiles).exists()) {
    compressLogsFactory();
  }
  openLogFileFactory();
  if (logFd < 0) {
    perror("couldn't open output file");
  }
}

/// Moves O.(number - 1) to O.number, and so on down to O to O.1.
void Quilbase::shiftRotatedFiles(int number) {
  for (; number > 1; --number) {
    RenameIfThere(Path("%s.%d", logFilePath, number - 1), Path("%s.%d", logFilePath, number),
                  "while rotating log files");
  }
  RenameIfThere(Path("%s", logFilePath), Path("%s.%d", logFilePath, 1), "while rotating log files");
}

void Quilbase::compressLogsFactory() {
  Path directory("%s_tmp", logFilePath);
  if (directory.get() == nullptr || mkdir(directory.get(), kTemporaryDirectoryMode) != 0) {
    perror("couldn't create compress dir");
  }
  if (directory.get() == nullptr || strchr(logFilePath, '/') == nullptr) {
    return;
  }
  for (int number = kRotatedFiles; number >= 1; --number) {
    const Path from("%s.%d", logFilePath, number);
    const Path to("%s/%s.%d", directory.get(), BaseName(logFilePath), number);
    if (from.get() == nullptr || to.get() == nullptr || rename(from.get(), to.get()) != 0) {
      perror("while rename log files");
    }
  }
  compressRunFactory(directory.release());
}

/// Packs the five files in `directory`, which is freed here, into O-0.tar.gz.
///
/// The archive is written inside the directory and only takes its place when it is whole, so that the process may die
/// at any step: a file "packed.tar.gz" there says that the five files are in it and may go, without it they are packed
/// anew. finishInterruptedRotation() picks up what is left.
void Quilbase::compressRunFactory(char* directory) {
  if (directory == nullptr) {
    return;
  }
  if (strchr(logFilePath, '/') == nullptr) {
    free(directory);
    return;
  }
  const Path unfinished("%s/unfinished.tar.gz", directory);
  const Path packed("%s/packed.tar.gz", directory);
  const bool resumed = packed.exists();
  if (!resumed && unfinished.get() != nullptr) {
    packRotatedFiles(directory, unfinished.get());
    RenameIfThere(unfinished, packed, "while rename compressed files");
  }
  deleteRotatedFiles(directory);
  if (packed.exists()) {
    moveArchivesUp(resumed);
    RenameIfThere(packed, Path("%s-%d.tar.gz", logFilePath, 0), "while rename compressed files");
  }
  if (rmdir(directory) != 0) {
    perror("unlink failed");
  }
  free(directory);
}

void Quilbase::packRotatedFiles(const char* directory, const char* archive) {
  char* paths[kRotatedFiles];
  for (int i = 0; i < kRotatedFiles; ++i) {
    paths[i] = Path("%s/%s.%d", directory, BaseName(logFilePath), i + 1).release();
  }
  tar_zip_files(kRotatedFiles, paths, archive, 0);
  SyncFile(archive);
  for (char* path : paths) {
    free(path);
  }
}

void Quilbase::deleteRotatedFiles(const char* directory) {
  for (int number = 1; number <= kRotatedFiles; ++number) {
    const Path path("%s/%s.%d", directory, BaseName(logFilePath), number);
    if (path.get() == nullptr || unlink(path.get()) != 0) {
      perror("unlink failed");
    }
  }
}

/// Gives each archive the next number; the oldest is replaced. `resumed` says that a run died on the way: the archives
/// above the lowest number that is free have moved already.
void Quilbase::moveArchivesUp(bool resumed) {
  int last = static_cast<int>(maxFiles) - 1;
  if (resumed) {
    int vacant = 0;
    while (vacant < last && Path("%s-%d.tar.gz", logFilePath, vacant).exists()) {
      ++vacant;
    }
    last = vacant;
  }
  for (int number = last; number >= 1; --number) {
    RenameIfThere(Path("%s-%d.tar.gz", logFilePath, number - 1), Path("%s-%d.tar.gz", logFilePath, number),
                  "while rename compressed files");
  }
}

/// Goes on where a process died between the first rename of a rotation and the end of its compression run. Otherwise
/// the next rotation would put new files over those that are not archived yet.
void Quilbase::finishInterruptedRotation() {
  Path directory("%s_tmp", outputFilePath);
  if (maxFiles == 0 || directory.get() == nullptr || (logFilePath == nullptr && !adoptOutputPath())) {
    return;
  }
  if (Path("%s/packed.tar.gz", directory.get()).exists()) {
    compressRunFactory(directory.release());
    return;
  }
  if (Path("%s/%s.%d", directory.get(), BaseName(logFilePath), kRotatedFiles).exists()) {
    for (int number = kRotatedFiles - 1; number >= 1; --number) {
      const Path to("%s/%s.%d", directory.get(), BaseName(logFilePath), number);
      if (!to.exists()) {
        RenameIfThere(Path("%s.%d", logFilePath, number), to, "while rename log files");
      }
    }
    compressRunFactory(directory.release());
    return;
  }
  if (!Path("%s.%d", logFilePath, kRotatedFiles).exists()) {
    return;
  }
  int vacant = 1;
  while (vacant < kRotatedFiles && Path("%s.%d", logFilePath, vacant).exists()) {
    ++vacant;
  }
  if (vacant < kRotatedFiles) {
    shiftRotatedFiles(vacant);
  }
  compressLogsFactory();
}
