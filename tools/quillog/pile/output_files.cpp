#include "quillog/output_files.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>

#include "logfile/file_names.h"
#include "logfile/indexed_files.h"

namespace {

constexpr int kReading = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
constexpr size_t kGzipHeader = 10;
constexpr int kMostArchives = FileNames::archivesFor(FileNames::kIndexes);

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// "cat-0.tar.gz", "cat.3", "cat_tmp" -> "cat"; empty for another name.
std::string OutputOfFactory(const std::string& name) {
  return FileNames::outputOfArchive(name) + FileNames::outputOfRotated(name) +
         FileNames::outputOfPackingDirectory(name);
}

LogFile Describe(const std::string& path, LogFile::Kind kind) {
  LogFile file;
  file.kind = kind;
  file.path = path;
  struct stat status = {};
  if (stat(path.c_str(), &status) == 0) {
    file.modified = TimeText::FromSeconds(status.st_mtime);
    file.device = status.st_dev;
    file.inode = status.st_ino;
  }
  if (const std::string stamp = FileNames::parseIndexed(path).timeStamp; !stamp.empty()) {
    file.started = TimeText::FromStamp(stamp);
  }
  return file;
}

/// What a directory holds of one output.
struct OutputEntries {
  std::vector<std::string> indexed;  ///< paths
  std::set<std::string> factory;     ///< paths with a suffix of factory mode
};

/// What a directory holds, by the names of outputs.
struct Directory {
  std::string prefix;  ///< of paths, with the last "/"
  std::map<std::string, OutputEntries> outputs;
  std::set<std::string> others;  ///< names of regular files that are not known to belong to an output
};

bool IsOfType(const dirent& entry, unsigned char type, const std::string& path) {
  if (entry.d_type != DT_UNKNOWN) {
    return entry.d_type == type;
  }
  struct stat status = {};  // the file system does not tell
  return lstat(path.c_str(), &status) == 0 && IFTODT(status.st_mode) == type;
}

/// False: it cannot be read (errno).
bool ReadDirectory(Directory& directory) {
  DIR* stream = opendir(directory.prefix.c_str());
  if (stream == nullptr) {
    return false;
  }
  while (const dirent* entry = readdir(stream)) {
    const std::string name = entry->d_name;
    const std::string path = directory.prefix + name;
    const std::string output = OutputOfFactory(name);
    if (!IsOfType(*entry, !FileNames::outputOfPackingDirectory(name).empty() ? DT_DIR : DT_REG, path)) {
      continue;
    }
    if (const std::string indexed = FileNames::parseIndexed(name).output; !indexed.empty()) {
      directory.outputs[indexed].indexed.push_back(path);
    } else if (!output.empty()) {
      directory.outputs[output].factory.insert(path);
    } else {
      directory.others.insert(name);
    }
  }
  closedir(stream);
  return true;
}

void AddIfThere(const std::string& path, LogFile::Kind kind, std::vector<LogFile>& files) {
  struct stat status = {};
  if (lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
    files.push_back(Describe(path, kind));
  }
}

/// Appends the rotated files of a live file at `path`, which there need not be, the oldest first.
void AddRotated(const std::string& path, std::vector<LogFile>& files) {
  for (int number = FileNames::kFilesPerArchive; number > 0; --number) {
    AddIfThere(FileNames::rotated(path, number), LogFile::Kind::kPlain, files);
  }
}

/// Adds what is in the directory in which a rotation packs five files: an archive that has its final name; before that
/// the files; and where these are gone, an archive that is perhaps not whole.
void AddPacking(const std::string& output, std::vector<LogFile>& files) {
  const std::string directory = FileNames::packingDirectory(output) + '/';
  const size_t before = files.size();
  AddIfThere(directory + FileNames::kPacked, LogFile::Kind::kArchive, files);
  if (files.size() == before) {
    AddRotated(directory + output.substr(output.rfind('/') + 1), files);
  }
  if (files.size() == before) {
    AddIfThere(directory + FileNames::kUnfinished, LogFile::Kind::kArchive, files);
  }
}

std::vector<LogFile> FactoryFiles(const std::string& output, const OutputEntries& entries) {
  std::vector<LogFile> files;
  for (int number = entries.factory.empty() ? 0 : kMostArchives; number-- > 0;) {
    const std::string path = FileNames::archive(output, number);
    if (entries.factory.count(path) > 0) {
      files.push_back(Describe(path, LogFile::Kind::kArchive));
    }
  }
  if (!entries.factory.empty()) {
    // The oldest files are moved there first, and stay while they cannot be packed: what is still outside is newer.
    AddPacking(output, files);
    AddRotated(output, files);
  }
  AddIfThere(output, LogFile::Kind::kPlain, files);
  return files;
}

std::vector<LogFile> MappedFiles(const std::string& output, const OutputEntries& entries) {
  std::vector<std::string> paths = entries.indexed;
  std::sort(paths.begin(), paths.end(), IndexedFiles::sort_by_early_time);
  IndexedFiles(output).adjustFileVecOrder(paths);
  std::vector<LogFile> files;
  for (const std::string& path : paths) {
    files.push_back(Describe(path, LogFile::Kind::kMapped));
  }
  return files;
}

/// The first bytes of a regular file. False: it cannot be read.
bool ReadHead(const std::string& path, std::string* head) {
  const OpenFile file(open(path.c_str(), kReading));
  struct stat status = {};
  char bytes[256];
  const bool isFile = fstat(file.fd, &status) == 0 && S_ISREG(status.st_mode);
  const ssize_t size = isFile ? read(file.fd, bytes, sizeof bytes) : -1;
  head->assign(bytes, size > 0 ? static_cast<size_t>(size) : 0);
  return size >= 0;
}

/// True for a file that holds nothing, gzip members, or the zeros of a mapped file that has got no text yet.
bool IsBlankOrMembers(const std::string& path) {
  std::string head;
  return ReadHead(path, &head) && (head.empty() || head[0] == '\0' || head[0] == '\x1f');
}

/// Takes out the copies that a tool which follows links, such as "adb pull", made of two of the mapped files: they hold
/// the same text once more.
void DropCopiedLinks(const std::string& output, std::vector<LogFile>& factory) {
  const auto isCopy = [&](const LogFile& file) {
    return (file.path == output || file.path == FileNames::previousLink(output)) && IsBlankOrMembers(file.path);
  };
  factory.erase(std::remove_if(factory.begin(), factory.end(), isCopy), factory.end());
}

void SetFiles(Output& output, const OutputEntries& entries) {
  std::vector<LogFile> mapped = MappedFiles(output.path, entries);
  std::vector<LogFile> factory = FactoryFiles(output.path, entries);
  if (!mapped.empty()) {
    DropCopiedLinks(output.path, factory);
  }
  // The write mode may have changed: the files of the mode before are deleted at the first rotation, not earlier.
  const bool factoryIsNewer = !factory.empty() && factory.back().path == output.path;
  std::vector<LogFile>& older = factoryIsNewer ? mapped : factory;
  const std::vector<LogFile>& newer = factoryIsNewer ? factory : mapped;
  older.insert(older.end(), newer.begin(), newer.end());
  output.files = std::move(older);
  if (!output.files.empty()) {
    output.files.back().newest = true;
  }
}

/// True when the file begins like text. Nothing else tells a live file that has not been rotated yet.
bool LooksLikeText(const std::string& path) {
  std::string head;
  return ReadHead(path, &head) && !head.empty() && head.find('\0') == std::string::npos && head[0] != '\x1f';
}

/// Mapped files keep their names, and there may be more of them than descriptors.
void KeepOpen(LogFile& file) {
  if (file.kind == LogFile::Kind::kMapped) {
    return;
  }
  const int fd = open(file.path.c_str(), kReading);
  if (fd >= 0) {
    file.open = std::make_shared<const OpenFile>(fd);
  }
}

}  // namespace

void OutputFiles::List(Output& output) {
  if (output.isFiles) {
    return;
  }
  Directory directory{output.path.substr(0, output.path.rfind('/') + 1), {}, {}};
  ReadDirectory(directory);
  SetFiles(output, directory.outputs[output.path.substr(directory.prefix.size())]);
}

void OutputFiles::Open(Output& output) {
  constexpr int kMostTries = 20;
  for (int tries = 0; tries < kMostTries && !output.isFiles; ++tries) {
    bool isRenamed = false;
    for (LogFile& file : output.files) {
      isRenamed |= file.kind != LogFile::Kind::kMapped;
      KeepOpen(file);
    }
    if (!isRenamed) {
      return;
    }
    Output again{output.path, {}};
    List(again);
    const auto same = [](const LogFile& a, const LogFile& b) {
      return a.path == b.path && a.inode == b.inode && a.device == b.device;
    };
    const std::vector<LogFile>& files = output.files;
    if (std::equal(files.begin(), files.end(), again.files.begin(), again.files.end(), same)) {
      return;
    }
    output.files = std::move(again.files);
  }
}

bool OutputFiles::Find(const std::string& path, std::vector<Output>* outputs) {
  Directory directory{EndsWith(path, "/") || path == "/" ? path : path + "/", {}, {}};
  if (!ReadDirectory(directory)) {
    return false;
  }
  const bool isGuess = directory.outputs.empty();
  if (isGuess) {
    for (const std::string& name : directory.others) {
      if (name[0] != '.' && !EndsWith(name, FileNames::kGzip) && LooksLikeText(directory.prefix + name)) {
        directory.outputs[name];
      }
    }
  }
  for (const auto& [name, entries] : directory.outputs) {
    Output output{directory.prefix + name, {}, false, isGuess};
    SetFiles(output, entries);
    if (!output.files.empty()) {
      outputs->push_back(output);
    }
  }
  return true;
}

LogFile OutputFiles::Single(const std::string& path) {
  LogFile::Kind kind = EndsWith(path, FileNames::kGzip) ? LogFile::Kind::kMapped : LogFile::Kind::kPlain;
  std::string head;
  const bool isGzip = ReadHead(path, &head) && head.size() >= kGzipHeader && head.compare(0, 2, "\x1f\x8b") == 0;
  // The two writers compress at different levels, which the ninth byte tells.
  if (EndsWith(path, FileNames::kArchiveEnd) || (isGzip && head[8] == '\0')) {
    kind = LogFile::Kind::kArchive;
  } else if (isGzip) {
    kind = LogFile::Kind::kMapped;
  }
  LogFile file = Describe(path, kind);
  file.newest = true;
  return file;
}
