#include "quillog/pile/spooled_folder.h"

#include <errno.h>

#include <utility>

/// The folder in which the last name of the way lies.
SpooledFolder* SpooledFolder::Make(const Way& way) {
  SpooledFolder* folder = this;
  for (size_t i = 0; i + 1 < way.size(); ++i) {
    std::shared_ptr<SpooledFolder>& next = folder->folders[way[i]];
    if (next == nullptr) {
      next = std::make_shared<SpooledFolder>();
    }
    folder = next.get();
  }
  return folder;
}

const SpooledFolder::File* SpooledFolder::Find(const Way& way) const {
  const SpooledFolder* folder = this;
  for (size_t i = 0; i + 1 < way.size(); ++i) {
    const auto next = folder->folders.find(way[i]);
    if (next == folder->folders.end()) {
      return nullptr;
    }
    folder = next->second.get();
  }
  const auto file = folder->files.find(way.back());
  return file == folder->files.end() ? nullptr : &file->second;
}

void SpooledFolder::Add(const Way& way, const ByteRange& bytes, int64_t modified, int error) {
  Make(way)->files.insert_or_assign(way.back(), File{bytes, modified, error});
}

bool SpooledFolder::Link(const Way& from, const Way& to) {
  const File* file = Find(from);
  if (file == nullptr) {
    return false;
  }
  const File copy = *file;
  Add(to, copy.bytes, copy.modified, copy.error);
  return true;
}

void SpooledFolder::Mount(const Way& way, std::shared_ptr<SpooledFolder> folder) {
  Make(way)->folders[way.back()] = std::move(folder);
}

bool SpooledFolder::List(Listing* listing) const {
  listing->clear();
  for (const auto& [name, file] : files) {
    (*listing)[name] = {false, file.bytes ? file.bytes.length : 0, file.modified, 0, 0};
  }
  for (const auto& [name, folder] : folders) {
    (*listing)[name].isFolder = true;
  }
  return true;
}

ByteRange SpooledFolder::Open(const std::string& name) const {
  const auto file = files.find(name);
  errno = file == files.end() ? ENOENT : file->second.error;
  return file == files.end() ? ByteRange() : file->second.bytes;
}

std::shared_ptr<const Folder> SpooledFolder::Sub(const std::string& name) const {
  const auto folder = folders.find(name);
  return folder == folders.end() ? std::make_shared<SpooledFolder>() : folder->second;
}
