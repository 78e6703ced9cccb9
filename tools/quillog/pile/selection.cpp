#include "quillog/pile/selection.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <unordered_map>

#include "logfile/file_names.h"
#include "quillog/pile/search.h"

namespace {

constexpr useconds_t kRetryPause = 20000;  // microseconds
constexpr char kDefault[] = "/data/log";
constexpr char kInside[] = "data/log/";
constexpr char kStandardInput[] = "stdin";

bool IsDirectory(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string WithDirectory(const std::string& path) {
  return path.find('/') == std::string::npos ? "./" + path : path;
}

/// With the last "/".
std::string DirectoryOf(const std::string& path) {
  return path.substr(0, path.rfind('/') + 1);
}

/// The file that a link in a directory pulled from elsewhere was made for, if it lies beside the link. Empty: none.
std::string TargetBeside(const std::string& path) {
  char target[PATH_MAX];
  const ssize_t length = readlink(path.c_str(), target, sizeof target);
  if (length <= 0) {
    return {};
  }
  const std::string name(target, static_cast<size_t>(length));
  const std::string beside = DirectoryOf(path) + name.substr(name.rfind('/') + 1);
  struct stat status = {};
  return lstat(beside.c_str(), &status) == 0 && S_ISREG(status.st_mode) ? beside : std::string();
}

bool Missing(const std::string& path, const char* why) {
  fprintf(stderr, "quillog: %s: %s\n", path.c_str(), why);
  return false;
}

/// A regular file that somebody named: a link in its place is followed. Nothing: it cannot be opened (errno).
ByteRange OpenNamed(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  return fd < 0 ? ByteRange() : ByteRange{std::make_shared<const OpenFile>(fd), 0, ByteRange::kToTheEnd};
}

/// "dir/bug.zip" -> "bug", "phone7/" -> "phone7"
std::string DeviceOf(const std::string& path, bool isContainer) {
  std::string name = path.substr(0, path.find_last_not_of('/') + 1);
  name = name.substr(name.rfind('/') + 1);
  if (name.empty() || name == "." || name == "..") {
    char whole[PATH_MAX];
    const char* real = realpath(path.c_str(), whole);
    name = real != nullptr ? strrchr(real, '/') + 1 : "";
  }
  for (const char* suffix : {".gz", ".tgz", ".tar", ".zip"}) {
    const size_t length = strlen(suffix);
    if (isContainer && name.size() > length && name.compare(name.size() - length, length, suffix) == 0) {
      name.resize(name.size() - length);
    }
  }
  return name;
}

/// Names the output for good: below its pile, or below the directory of all logs, wherever in a pile that is. Logs at
/// their own place are this machine's.
void SetNames(Output& output, const std::string& pile, bool isContainer) {
  const bool isOwn = output.path.compare(0, sizeof kDefault - 1, kDefault) == 0 && !isContainer;
  output.device = isOwn ? "" : DeviceOf(pile, isContainer);
  const std::string prefix = pile.back() == '/' ? pile : pile + '/';
  const size_t inside = output.path.rfind(std::string("/") + kInside);
  output.name = inside != std::string::npos && (isOwn || inside + 1 >= prefix.size())
                    ? output.path.substr(inside + sizeof kInside)
                    : output.path.substr(prefix.size());
}

}  // namespace

bool Selection::Add(const std::vector<std::string>& paths) {
  if (paths.empty()) {
    return AddDirectory(kDefault);
  }
  for (const std::string& path : paths) {
    if (!AddPath(path)) {
      return false;
    }
  }
  if (!singles.empty()) {
    OrderByAge(singles);
    Output output;
    output.path = singles.size() == 1 ? singles.front().path : "named files";
    output.name = singles.size() == 1 ? singles.front().Name() : "";
    output.files = singles;
    output.isFiles = true;
    found.push_back(std::move(output));
  }
  DropRepeated();
  opened.clear();
  directories.clear();
  return true;
}

/// A shell's "directory/*" names an output and its files one by one: what is part of another is not shown again.
void Selection::DropRepeated() {
  std::vector<size_t> places(found.size());
  std::iota(places.begin(), places.end(), 0);
  // The outputs first: they know the order of their files.
  std::stable_sort(places.begin(), places.end(), [this](size_t a, size_t b) {
    return std::make_pair(found[a].isFiles, found[b].files.size()) <
           std::make_pair(found[b].isFiles, found[a].files.size());
  });
  std::set<std::pair<uint64_t, uint64_t>> known;
  std::set<std::string> links;  // a copy of one is another file
  for (const size_t place : places) {
    std::vector<LogFile>& files = found[place].files;
    const auto isRepeated = [&](const LogFile& file) {
      return links.count(WithDirectory(file.path)) > 0 ||
             (file.inode != 0 && !known.insert({file.device, file.inode}).second);
    };
    if (found[place].isFiles) {
      files.erase(std::remove_if(files.begin(), files.end(), isRepeated), files.end());
    } else if (static_cast<size_t>(std::count_if(files.begin(), files.end(), isRepeated)) == files.size()) {
      files.clear();
    }
    if (!files.empty()) {
      files.back().newest = true;  // it may not have been the last
    }
    links.insert(WithDirectory(FileNames::previousLink(found[place].path)));
  }
  found.erase(std::remove_if(found.begin(), found.end(), [](const Output& output) { return output.files.empty(); }),
              found.end());
}

bool Selection::AddPath(const std::string& path, int tries) {
  if (path.empty()) {
    return Missing("\"\"", "no path");
  }
  if (path == "-") {
    return AddStandardInput();
  }
  if (IsDirectory(path)) {
    return AddDirectory(path);
  }
  struct stat status = {};
  const bool exists = stat(path.c_str(), &status) == 0;
  const int error = errno;
  if (exists && S_ISREG(status.st_mode)) {
    return AddFile(path);
  }
  if (exists) {
    return Missing(path, "not a regular file");
  }
  if (error == ENOTDIR) {
    return AddInContainer(path);
  }
  // The names of an output's files are made of its directory and its name.
  const std::string full = WithDirectory(path);
  Output output;
  output.path = full;
  output.folder = FolderAt(DirectoryOf(full));
  output.files = output.folder->FilesOf(full.substr(DirectoryOf(full).size()));
  if (!output.files.empty()) {
    SetNames(output, DirectoryOf(full), false);
    found.push_back(std::move(output));
    return true;
  }
  if (const std::string target = TargetBeside(path); !target.empty()) {
    AddSingle(target);
    return true;
  }
  if (error == ENOENT && tries > 1) {
    // A rotation renames its files: what is nowhere now may be there in a moment.
    usleep(kRetryPause);
    output.folder->Refresh();
    return AddPath(path, tries - 1);
  }
  return Missing(path, error == ENOENT ? "no log there" : strerror(error));
}

/// A regular file: a container, a mapped file, an output's live file, or another one.
bool Selection::AddFile(const std::string& path) {
  if (!FileNames::parseIndexed(path).output.empty()) {
    AddSingle(path);
    return true;
  }
  const ByteRange file = OpenNamed(path);
  if (!file) {
    return Missing(path, strerror(errno));
  }
  const FileForm form = FormOf(path, file);
  if (IsContainer(form)) {
    return AddContainer(path, path);
  }
  const std::string full = WithDirectory(path);
  Output output;
  output.path = full;
  output.folder = FolderAt(DirectoryOf(full));
  output.files = output.folder->FilesOf(full.substr(DirectoryOf(full).size()));
  const bool isAlone = output.files.size() == 1 && output.files.front().path == output.path;
  const bool isLive = isAlone && FileNames::outputOfRotated(path).empty() && form == FileForm::kOther &&
                      KindOf(path, file) == LogFile::Kind::kPlain;  // it has not been rotated yet
  if (output.files.empty() || (isAlone && !isLive)) {
    AddSingle(path);
  } else {
    SetNames(output, DirectoryOf(full), false);
    found.push_back(std::move(output));
  }
  return true;
}

bool Selection::AddDirectory(const std::string& path) {
  return AddFolder(LiveFolder(path), path, path);
}

/// The container at `path`, or what is in it at the path `inside`.
bool Selection::AddContainer(const std::string& path, const std::string& inside) {
  std::shared_ptr<const Folder>& folder = opened[path];
  if (folder == nullptr) {
    folder = containers.Read(OpenNamed(path), path);
  } else if (path == inside) {
    return true;  // named twice
  }
  return AddFolder(folder, path, inside);
}

/// "bug.zip/t/cat"
bool Selection::AddInContainer(const std::string& path) {
  for (size_t end = path.rfind('/'); end != std::string::npos && end > 0; end = path.rfind('/', end - 1)) {
    const std::string container = path.substr(0, end);
    struct stat status = {};
    if (stat(container.c_str(), &status) != 0) {
      continue;
    }
    const ByteRange file = S_ISREG(status.st_mode) ? OpenNamed(container) : ByteRange();
    return file && IsContainer(FormOf(container, file)) ? AddContainer(container, path)
                                                        : Missing(path, strerror(ENOTDIR));
  }
  return Missing(path, strerror(ENOTDIR));
}

bool Selection::AddStandardInput() {
  bool isContainer = false;
  const std::shared_ptr<const Folder> folder = containers.ReadStandardInput(kStandardInput, &isContainer);
  if (folder == nullptr) {
    return Missing("standard input", "nothing there");
  }
  if (isContainer) {
    return AddFolder(folder, kStandardInput, kStandardInput);
  }
  OutputFolder list(folder, "");
  list.Refresh();
  singles.push_back(list.Single(kStandardInput));
  singles.back().path = kStandardInput;
  return true;
}

/// The outputs in the folder at `path`, as far as they lie at or below the path `wanted`.
bool Selection::AddFolder(const std::shared_ptr<const Folder>& folder, const std::string& path,
                          const std::string& wanted) {
  std::vector<Output> outputs;
  if (!Search(pileDamages).Find(folder, path, &outputs)) {
    return Missing(path, strerror(errno));
  }
  size_t count = 0;
  for (Output& output : outputs) {
    const bool isInside =
        wanted == path || output.path == wanted || output.path.compare(0, wanted.size() + 1, wanted + '/') == 0;
    if (isInside) {
      SetNames(output, path, !output.IsLive());
      found.push_back(std::move(output));
      ++count;
    }
  }
  ambiguous |= count > 1;
  return count > 0 || Missing(wanted, "no log there");
}

/// A link that somebody named is followed, once and for all.
void Selection::AddSingle(const std::string& path) {
  char target[PATH_MAX];
  struct stat status = {};
  const bool isLink = lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
  const std::string shown = isLink && realpath(path.c_str(), target) != nullptr ? target : path;
  const std::string full = WithDirectory(shown);
  const std::string directory = DirectoryOf(full);
  singles.push_back(FolderAt(directory)->Single(full.substr(directory.size())));
  singles.back().path = shown;
}

/// Lists each directory once, however many of its files are named.
std::shared_ptr<OutputFolder> Selection::FolderAt(const std::string& directory) {
  std::shared_ptr<OutputFolder>& folder = directories[directory];
  if (folder == nullptr) {
    folder = std::make_shared<OutputFolder>(LiveFolder(directory), directory);
    folder->Refresh();  // what cannot be listed may hold files that can be read
  }
  return folder;
}

/// Puts files of one output into its order, whatever the shell made of it; others stay where they are named.
void Selection::OrderByAge(std::vector<LogFile>& files) {
  std::set<std::string> places;
  for (size_t i = 0; files.size() > 1 && i < files.size(); ++i) {
    places.insert(DirectoryOf(WithDirectory(files[i].path)));
  }
  std::unordered_map<std::string, size_t> ages;
  for (const std::string& directory : places) {
    const std::shared_ptr<OutputFolder> folder = FolderAt(directory);
    for (const std::string& output : folder->Outputs()) {
      for (const LogFile& file : folder->FilesOf(output)) {
        ages.emplace(file.path, ages.size());
      }
    }
  }
  const auto age = [&](const LogFile& file) {
    const auto known = ages.find(WithDirectory(file.path));
    return known == ages.end() ? SIZE_MAX : known->second;
  };
  std::stable_sort(files.begin(), files.end(), [&](const LogFile& a, const LogFile& b) { return age(a) < age(b); });
  for (LogFile& file : files) {
    file.newest = &file == &files.back();
  }
}
