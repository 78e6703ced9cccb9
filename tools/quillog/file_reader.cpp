#include "quillog/file_reader.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "quillog/archive_reader.h"
#include "quillog/member_reader.h"
#include "quillog/plain_reader.h"

FileReader::~FileReader() {
  close(fd);
}

std::unique_ptr<FileReader> FileReader::Open(const LogFile& file, TextSink& sink, std::string* error) {
  // A fifo would keep the open waiting, a terminal would become ours.
  const int fd = file.open != nullptr ? fcntl(file.open->fd, F_DUPFD_CLOEXEC, 0)
                                      : open(file.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  struct stat status = {};
  if (fd < 0 || fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    *error = fd < 0 ? strerror(errno) : "not a regular file";
    if (fd >= 0) {
      close(fd);
    }
    return nullptr;
  }
  std::unique_ptr<FileReader> reader;
  switch (file.kind) {
    case LogFile::Kind::kMapped:
      reader = std::make_unique<MemberReader>(fd, sink, file.newest);
      break;
    case LogFile::Kind::kArchive:
      reader = std::make_unique<ArchiveReader>(fd, sink);
      break;
    case LogFile::Kind::kPlain:
      reader = std::make_unique<PlainReader>(fd, sink);
      break;
  }
  reader->deviceNumber = status.st_dev;
  reader->inodeNumber = status.st_ino;
  return reader;
}

void FileReader::ReportDamage(uint64_t offset, FileState state, const std::string& what) {
  if (summary.state != FileState::kTorn && summary.state != FileState::kDamaged) {
    summary.damagedAt = offset;
  }
  summary.state = state;
  sink.OnDamage(offset, what);
}
