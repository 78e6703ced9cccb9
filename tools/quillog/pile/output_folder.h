#ifndef QUILCAT_TOOLS_QUILLOG_PILE_OUTPUT_FOLDER_H_
#define QUILCAT_TOOLS_QUILLOG_PILE_OUTPUT_FOLDER_H_

#include <memory>
#include <string>
#include <vector>

#include "quillog/pile/log_file.h"

/// A folder's names as the outputs that they make. Keeps the names of one moment; the outputs in it share one.
class OutputFolder {
 public:
  /// `path` is what is shown of it.
  OutputFolder(std::shared_ptr<const Folder> listed, const std::string& path);

  /// Lists it. False: it cannot be listed (errno), and nothing is in it.
  bool Refresh();
  /// Lists it if names may have changed since: outputs in one folder do not list it again and again.
  bool Update();
  /// Frees the memory of the names.
  void Forget() { names.clear(); }

  /// Outputs that the names tell, sorted.
  std::vector<std::string> Outputs() const;
  /// Text files of any name, which may be live files that were not rotated yet, where there are no other outputs.
  std::vector<std::string> Texts() const;
  /// True when there may be some; reads no file.
  bool MayHaveTexts() const;
  std::vector<std::string> Folders() const;

  /// The output's files in the daemon's own order of age.
  std::vector<LogFile> FilesOf(const std::string& output) const;
  /// The file of that name, by its name and its first bytes.
  LogFile Single(const std::string& name) const;

  const Folder& folder() const { return *source; }
  std::shared_ptr<const Folder> Sub(const std::string& name) const { return source->Sub(name); }
  const std::string& prefix() const { return shownPrefix; }
  size_t size() const { return names.size(); }

 private:
  void Add(const std::string& name, LogFile::Kind kind, std::vector<LogFile>& files) const;
  void AddRotated(const std::string& output, std::vector<LogFile>& files) const;
  void AddPacking(const std::string& output, std::vector<LogFile>& files) const;
  std::vector<LogFile> FactoryFiles(const std::string& output) const;
  std::vector<LogFile> MappedFiles(const std::string& output) const;
  void DropCopiedLinks(const std::string& output, std::vector<LogFile>& factory) const;
  template <typename Visit>
  void ForEachOutput(Visit visit) const;
  template <typename Visit>
  void ForEachFrom(const std::string& beginning, Visit visit) const;

  std::shared_ptr<const Folder> source;
  std::string shownPrefix;  ///< of paths, with the last "/"
  Listing names;
  std::string mark;
};

/// The first bytes of a file of that folder, at most 256. False: it cannot be read.
bool ReadHead(const Folder& folder, const std::string& name, std::string* head);

#endif  // QUILCAT_TOOLS_QUILLOG_PILE_OUTPUT_FOLDER_H_
