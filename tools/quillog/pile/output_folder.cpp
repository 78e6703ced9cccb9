#include "quillog/pile/output_folder.h"

#include <errno.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <utility>

#include "logfile/file_names.h"
#include "logfile/indexed_files.h"
#include "quillog/pile/container.h"

namespace {

constexpr int kMostArchives = FileNames::archivesFor(FileNames::kIndexes);

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() > end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// True for a file that holds nothing, gzip members, or the zeros of a mapped file that has got no text yet.
bool IsBlankOrMembers(const Folder& folder, const std::string& name) {
  std::string head;
  return ReadHead(folder, name, &head) && (head.empty() || head[0] == '\0' || head[0] == '\x1f');
}

/// True when the file begins like text. Nothing else tells a live file that has not been rotated yet.
bool LooksLikeText(const Folder& folder, const std::string& name) {
  std::string head;
  return ReadHead(folder, name, &head) && !head.empty() && head.find('\0') == std::string::npos && head[0] != '\x1f';
}

bool MayBeText(const std::string& name, const FolderEntry& entry) {
  return !entry.isFolder && entry.size > 0 && name[0] != '.' && !EndsWith(name, FileNames::kGzip);
}

}  // namespace

bool ReadHead(const Folder& folder, const std::string& name, std::string* head) {
  char bytes[256];
  const ByteRange file = folder.Open(name);
  const size_t wanted = static_cast<size_t>(std::min<uint64_t>(sizeof bytes, file.length));
  const ssize_t size = file ? pread(file.fd(), bytes, wanted, static_cast<off_t>(file.base)) : -1;
  head->assign(bytes, size > 0 ? static_cast<size_t>(size) : 0);
  return size >= 0;
}

OutputFolder::OutputFolder(std::shared_ptr<const Folder> listed, const std::string& path)
    : source(std::move(listed)), shownPrefix(EndsWith(path, "/") || path == "/" ? path : path + "/") {}

bool OutputFolder::Refresh() {
  names.clear();
  mark = source->Mark();
  if (!source->List(&names)) {
    const int error = errno;
    names.clear();
    mark.clear();
    errno = error;
    return false;
  }
  return true;
}

bool OutputFolder::Update() {
  return (!mark.empty() && source->Mark() == mark) || Refresh();
}

/// Calls `visit` with the output of each name that tells one.
template <typename Visit>
void OutputFolder::ForEachOutput(Visit visit) const {
  for (const auto& [name, entry] : names) {
    const std::string output = entry.isFolder ? FileNames::outputOfPackingDirectory(name)
                                              : FileNames::parseIndexed(name).output +
                                                    FileNames::outputOfArchive(name) + FileNames::outputOfRotated(name);
    if (!output.empty()) {
      visit(output);
    }
  }
}

/// Calls `visit` with each name of a file that begins so.
template <typename Visit>
void OutputFolder::ForEachFrom(const std::string& beginning, Visit visit) const {
  for (auto name = names.lower_bound(beginning);
       name != names.end() && name->first.compare(0, beginning.size(), beginning) == 0; ++name) {
    if (!name->second.isFolder) {
      visit(name->first);
    }
  }
}

std::vector<std::string> OutputFolder::Outputs() const {
  std::set<std::string> outputs;
  ForEachOutput([&outputs](const std::string& output) { outputs.insert(output); });
  return {outputs.begin(), outputs.end()};
}

bool OutputFolder::MayHaveTexts() const {
  return std::any_of(names.begin(), names.end(), [](const auto& name) { return MayBeText(name.first, name.second); });
}

std::vector<std::string> OutputFolder::Texts() const {
  std::vector<std::string> texts;
  for (const auto& [name, entry] : names) {
    if (MayBeText(name, entry) && LooksLikeText(*source, name)) {
      texts.push_back(name);
    }
  }
  return texts;
}

std::vector<std::string> OutputFolder::Folders() const {
  std::vector<std::string> folders;
  for (const auto& [name, entry] : names) {
    if (entry.isFolder) {
      folders.push_back(name);
    }
  }
  return folders;
}

/// Appends the file of that name, if there is one.
void OutputFolder::Add(const std::string& name, LogFile::Kind kind, std::vector<LogFile>& files) const {
  const auto found = names.find(name);
  if (found == names.end() || found->second.isFolder) {
    return;
  }
  const FolderEntry& entry = found->second;
  LogFile file;
  file.kind = kind;
  file.path = shownPrefix + name;
  file.folder = source;
  file.modified = TimeText::FromSeconds(entry.modified);
  file.size = entry.size;
  file.device = entry.device;
  file.inode = entry.inode;
  if (const std::string stamp = FileNames::parseIndexed(name).timeStamp; !stamp.empty()) {
    file.started = TimeText::FromStamp(stamp);
  }
  files.push_back(std::move(file));
}

/// Appends the rotated files of a live file, which there need not be, the oldest first.
void OutputFolder::AddRotated(const std::string& output, std::vector<LogFile>& files) const {
  for (int number = FileNames::kFilesPerArchive; number > 0; --number) {
    Add(FileNames::rotated(output, number), LogFile::Kind::kPlain, files);
  }
}

/// Adds what is in the directory in which a rotation packs five files: an archive that has its final name; before that
/// the files; and where these are gone, an archive that is perhaps not whole.
void OutputFolder::AddPacking(const std::string& output, std::vector<LogFile>& files) const {
  const std::string name = FileNames::packingDirectory(output);
  const auto found = names.find(name);
  if (found == names.end() || !found->second.isFolder) {
    return;
  }
  OutputFolder packing(source->Sub(name), shownPrefix + name);
  packing.Refresh();
  const size_t before = files.size();
  packing.Add(FileNames::kPacked, LogFile::Kind::kArchive, files);
  if (files.size() == before) {
    packing.AddRotated(output, files);
  }
  if (files.size() == before) {
    packing.Add(FileNames::kUnfinished, LogFile::Kind::kArchive, files);
  }
}

std::vector<LogFile> OutputFolder::FactoryFiles(const std::string& output) const {
  std::vector<LogFile> files;
  const std::string beginning = output + '-';
  std::set<int> numbers;
  ForEachFrom(beginning, [&](const std::string& name) {
    const int number = atoi(name.c_str() + beginning.size());
    if (number < kMostArchives && name == FileNames::archive(output, number)) {
      numbers.insert(-number);
    }
  });
  for (const int number : numbers) {
    Add(FileNames::archive(output, -number), LogFile::Kind::kArchive, files);
  }
  // The oldest files are moved there first, and stay while they cannot be packed: what is still outside is newer.
  AddPacking(output, files);
  AddRotated(output, files);
  Add(output, LogFile::Kind::kPlain, files);
  return files;
}

std::vector<LogFile> OutputFolder::MappedFiles(const std::string& output) const {
  std::vector<std::string> paths;
  ForEachFrom(output + ".I", [&](const std::string& name) {
    if (FileNames::parseIndexed(name).output == output) {
      paths.push_back(shownPrefix + name);
    }
  });
  IndexedFiles(shownPrefix + output).adjustFileVecOrder(paths);  // they are sorted
  std::vector<LogFile> files;
  for (const std::string& path : paths) {
    Add(path.substr(shownPrefix.size()), LogFile::Kind::kMapped, files);
  }
  return files;
}

/// Takes out the copies that a tool which follows links, such as "adb pull", made of two of the mapped files: they hold
/// the same text once more.
void OutputFolder::DropCopiedLinks(const std::string& output, std::vector<LogFile>& factory) const {
  const auto isCopy = [&](const LogFile& file) {
    const std::string name = file.Name();
    return (name == output || name == FileNames::previousLink(output)) && IsBlankOrMembers(*source, name);
  };
  factory.erase(std::remove_if(factory.begin(), factory.end(), isCopy), factory.end());
}

std::vector<LogFile> OutputFolder::FilesOf(const std::string& output) const {
  std::vector<LogFile> mapped = MappedFiles(output);
  std::vector<LogFile> factory = FactoryFiles(output);
  if (!mapped.empty()) {
    DropCopiedLinks(output, factory);
  }
  // The write mode may have changed: the files of the mode before are deleted at the first rotation, not earlier.
  const bool factoryIsNewer = !factory.empty() && factory.back().path == shownPrefix + output;
  std::vector<LogFile>& older = factoryIsNewer ? mapped : factory;
  const std::vector<LogFile>& newer = factoryIsNewer ? factory : mapped;
  older.insert(older.end(), newer.begin(), newer.end());
  if (!older.empty()) {
    older.back().newest = true;
  }
  return std::move(older);
}

LogFile OutputFolder::Single(const std::string& name) const {
  std::vector<LogFile> files;
  Add(name, LogFile::Kind::kPlain, files);
  if (files.empty()) {  // gone again
    files.emplace_back();
    files.back().path = shownPrefix + name;
    files.back().folder = source;
  }
  LogFile& file = files.back();
  file.kind = KindOf(name, source->Open(name));
  file.newest = true;
  return file;
}
