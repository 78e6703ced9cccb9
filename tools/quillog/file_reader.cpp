#include "quillog/file_reader.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "quillog/archive_reader.h"
#include "quillog/member_reader.h"
#include "quillog/plain_reader.h"

std::unique_ptr<FileReader> FileReader::Open(const LogFile& file, TextSink& sink, std::string* error) {
  const ByteRange fd = file.Open();
  struct stat status = {};
  if (!fd || fstat(fd.fd(), &status) != 0) {
    *error = strerror(errno);
    return nullptr;
  }
  std::unique_ptr<FileReader> reader;
  switch (file.kind) {
    case LogFile::Kind::kMapped:
      reader = std::make_unique<MemberReader>(fd, sink, file.newest && file.inode != 0);
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
