#ifndef QUILCAT_TOOLS_QUILLOG_PILE_CONTAINER_H_
#define QUILCAT_TOOLS_QUILLOG_PILE_CONTAINER_H_

#include <string>
#include <vector>

#include "quillog/pile/log_file.h"
#include "quillog/pile/pile_damage.h"
#include "quillog/pile/spool.h"
#include "quillog/pile/spooled_folder.h"

/// What the first bytes of a file make of it. A gzip file of a tar stream is a container, with one exception: the
/// archive of an output. That is what the daemon's own writer made, whatever its name; and what is named like an
/// archive
/// ("cat-0.tar.gz") and holds a rotated file ("cat.5") first, whoever packed it.
enum class FileForm { kZip, kTar, kArchive, kGzip, kOther };
FileForm FormOf(const std::string& name, const ByteRange& file);
inline bool IsContainer(FileForm form) {
  return form == FileForm::kZip || form == FileForm::kTar;
}

/// What a log file of that form is.
LogFile::Kind KindOf(const std::string& name, const ByteRange& file);

/// Reads containers, each once from its beginning to its end, and keeps what may be files of outputs. Nothing is ever
/// unpacked: names are names only, links lead nowhere, and what a container makes of itself is bounded.
class Containers {
 public:
  explicit Containers(std::vector<PileDamage>& told) : damages(told) {}

  /// `path` is for messages. Containers in it are read as folders, those in these are not.
  std::shared_ptr<const Folder> Read(const ByteRange& file, const std::string& path);
  /// Standard input: a container, or one file whose name is `path`. Null: there is nothing.
  std::shared_ptr<const Folder> ReadStandardInput(const std::string& path, bool* isContainer);

 private:
  std::vector<PileDamage>& damages;
  Spool spool;
};

#endif  // QUILCAT_TOOLS_QUILLOG_PILE_CONTAINER_H_
