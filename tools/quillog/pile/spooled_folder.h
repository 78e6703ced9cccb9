#ifndef QUILCAT_TOOLS_QUILLOG_PILE_SPOOLED_FOLDER_H_
#define QUILCAT_TOOLS_QUILLOG_PILE_SPOOLED_FOLDER_H_

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "quillog/pile/folder.h"

/// A folder of a container: what was kept of it.
class SpooledFolder : public Folder {
 public:
  using Way = std::vector<std::string>;  ///< names from this folder down to one inside

  /// A later file of the same name replaces one, as it would when the container is unpacked. `error`: why its bytes are
  /// not kept (errno).
  void Add(const Way& way, const ByteRange& bytes, int64_t modified, int error = 0);
  /// Gives a file a further name. False: there is no such file.
  bool Link(const Way& from, const Way& to);
  /// Puts a folder into this one.
  void Mount(const Way& way, std::shared_ptr<SpooledFolder> folder);

  bool List(Listing* listing) const override;
  std::string Mark() const override { return "never changes"; }
  ByteRange Open(const std::string& name) const override;
  std::shared_ptr<const Folder> Sub(const std::string& name) const override;
  bool IsLive() const override { return false; }

 private:
  struct File {
    ByteRange bytes;
    int64_t modified;
    int error;
  };

  SpooledFolder* Make(const Way& way);
  const File* Find(const Way& way) const;

  std::map<std::string, File> files;
  std::map<std::string, std::shared_ptr<SpooledFolder>> folders;
};

#endif  // QUILCAT_TOOLS_QUILLOG_PILE_SPOOLED_FOLDER_H_
