#include "quillog/selection.h"

#include <dirent.h>
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <set>
#include <unordered_map>
#include <utility>

#include "logfile/file_names.h"

namespace {

constexpr useconds_t kRetryPause = 20000;  // microseconds
constexpr char kDefault[] = "/data/log";

bool IsDirectory(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string WithDirectory(const std::string& path) {
  return path.find('/') == std::string::npos ? "./" + path : path;
}

/// The file that a link in a directory pulled from elsewhere was made for, if it lies beside the link. Empty: none.
std::string TargetBeside(const std::string& path) {
  char target[PATH_MAX];
  const ssize_t length = readlink(path.c_str(), target, sizeof target);
  if (length <= 0) {
    return {};
  }
  const std::string name(target, static_cast<size_t>(length));
  const std::string beside = path.substr(0, path.rfind('/') + 1) + name.substr(name.rfind('/') + 1);
  struct stat status = {};
  return lstat(beside.c_str(), &status) == 0 && S_ISREG(status.st_mode) ? beside : std::string();
}

bool Missing(const std::string& path, const char* why) {
  fprintf(stderr, "quillog: %s: %s\n", path.c_str(), why);
  return false;
}

}  // namespace

bool Selection::Add(const std::vector<std::string>& paths) {
  if (paths.empty()) {
    return access(kDefault, R_OK) == 0 ? AddFound(kDefault, InDirectories(kDefault))
                                       : Missing(kDefault, strerror(errno));
  }
  for (const std::string& path : paths) {
    if (!AddPath(path)) {
      return false;
    }
  }
  if (!singles.empty()) {
    OrderByAge(singles);
    found.push_back({singles.size() == 1 ? singles.front().path : "named files", singles, true});
  }
  DropRepeated();
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
  if (IsDirectory(path)) {
    return AddDirectory(path);
  }
  struct stat status = {};
  const bool exists = stat(path.c_str(), &status) == 0;
  const int error = errno;
  if (exists && S_ISREG(status.st_mode) && !FileNames::parseIndexed(path).output.empty()) {
    singles.push_back(OutputFiles::Single(path));
    return true;
  }
  // The names of an output's files are made of its directory and its name.
  Output output{WithDirectory(path), {}, false};
  OutputFiles::List(output);
  const bool isAlone = output.files.size() == 1 && output.files.front().path == output.path;
  if (!output.files.empty() && !isAlone) {
    found.push_back(output);
    return true;
  }
  if (const std::string target = TargetBeside(path); !exists && !target.empty()) {
    singles.push_back(OutputFiles::Single(target));
    return true;
  }
  if (!exists && error == ENOENT && tries > 1) {
    // A rotation renames its files: what is nowhere now may be there in a moment.
    usleep(kRetryPause);
    return AddPath(path, tries - 1);
  }
  if (!exists) {
    return Missing(path, error == ENOENT ? "no log there" : strerror(error));
  }
  if (!S_ISREG(status.st_mode)) {
    return Missing(path, "not a regular file");
  }
  if (isAlone && FileNames::outputOfRotated(path).empty() && OutputFiles::Single(path).kind == LogFile::Kind::kPlain) {
    found.push_back(output);  // a live file that has not been rotated yet
  } else {
    singles.push_back(OutputFiles::Single(path));
  }
  return true;
}

bool Selection::AddDirectory(const std::string& path) {
  std::vector<Output> outputs;
  if (!OutputFiles::Find(path, &outputs)) {
    return Missing(path, strerror(errno));
  }
  const auto isSure = [](const Output& output) { return !output.isGuess; };
  if (std::none_of(outputs.begin(), outputs.end(), isSure)) {
    // A text beside directories with logs is somebody's note.
    std::vector<Output> inside = InDirectories(path);
    if (outputs.empty() || std::any_of(inside.begin(), inside.end(), isSure)) {
      outputs = std::move(inside);
    }
  }
  return AddFound(path, outputs);
}

bool Selection::AddFound(const std::string& path, const std::vector<Output>& outputs) {
  ambiguous |= outputs.size() > 1;
  found.insert(found.end(), outputs.begin(), outputs.end());
  return !outputs.empty() || Missing(path, "no log there");
}

/// The outputs in the subdirectories of the directory at `path`.
std::vector<Output> Selection::InDirectories(const std::string& path) {
  std::vector<std::string> directories;
  DIR* stream = opendir(path.c_str());
  while (const dirent* entry = stream != nullptr ? readdir(stream) : nullptr) {
    const std::string name = entry->d_name;
    if (name[0] != '.' && IsDirectory(path + "/" + name)) {
      directories.push_back(path + (path.back() == '/' ? "" : "/") + name);
    }
  }
  if (stream != nullptr) {
    closedir(stream);
  }
  std::sort(directories.begin(), directories.end());
  std::vector<Output> outputs;
  for (const std::string& directory : directories) {
    OutputFiles::Find(directory, &outputs);
  }
  return outputs;
}

/// Puts files of one output into its order, whatever the shell made of it; others stay where they are named.
void Selection::OrderByAge(std::vector<LogFile>& files) {
  std::set<std::string> directories;
  for (size_t i = 0; files.size() > 1 && i < files.size(); ++i) {
    const std::string path = WithDirectory(files[i].path);
    directories.insert(path.substr(0, path.rfind('/') + 1));
  }
  std::unordered_map<std::string, size_t> ages;
  for (const std::string& directory : directories) {
    std::vector<Output> outputs;
    OutputFiles::Find(directory, &outputs);
    for (const Output& output : outputs) {
      for (const LogFile& file : output.files) {
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
