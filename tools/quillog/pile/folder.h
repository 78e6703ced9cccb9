#ifndef QUILCAT_TOOLS_QUILLOG_PILE_FOLDER_H_
#define QUILCAT_TOOLS_QUILLOG_PILE_FOLDER_H_

#include <stddef.h>
#include <stdint.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "quillog/bytes/byte_range.h"

/// What a folder holds under one name. Links and devices are not listed: nothing in a pile is followed.
struct FolderEntry {
  bool isFolder = false;
  uint64_t size = 0;
  int64_t modified = 0;  ///< seconds since 1970
  uint64_t device = 0;
  uint64_t inode = 0;  ///< 0: has none, as it comes from a container
};

/// The names in a folder at one moment.
using Listing = std::map<std::string, FolderEntry>;

/// A directory of the file system or of a container: what is in it can be listed and opened. Keeps no descriptor.
class Folder {
 public:
  virtual ~Folder() = default;
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  /// What is there now. False: it cannot be read (errno).
  virtual bool List(Listing* listing) const = 0;
  /// Something that differs when names have changed since, and "" when that cannot be told.
  virtual std::string Mark() const = 0;
  /// Opens the regular file of that name; a link is none. Nothing: it cannot be opened (errno).
  virtual ByteRange Open(const std::string& name) const = 0;
  /// The folder of that name in this one.
  virtual std::shared_ptr<const Folder> Sub(const std::string& name) const = 0;
  /// False: nothing changes there any more.
  virtual bool IsLive() const = 0;

 protected:
  Folder() = default;
};

/// The directory at `path`, where links in the path are followed: somebody named it. None of those below is.
std::shared_ptr<const Folder> LiveFolder(const std::string& path);

#endif  // QUILCAT_TOOLS_QUILLOG_PILE_FOLDER_H_
