#include "quillog/pile/output_files.h"

#include <errno.h>

#include <algorithm>
#include <utility>

#include "logfile/file_names.h"
#include "quillog/pile/output_folder.h"

namespace {

std::vector<LogFile> FilesOf(const Output& output) {
  return output.folder->FilesOf(output.path.substr(output.folder->prefix().size()));
}

/// True for a file that a rotation deletes once its text is elsewhere. Mapped files and archives are only deleted for
/// their age, and there may be more of them than descriptors.
bool IsMoved(const LogFile& file) {
  const std::string name = file.Name();
  return file.kind == LogFile::Kind::kPlain || name == FileNames::kPacked || name == FileNames::kUnfinished;
}

bool IsSameList(const std::vector<LogFile>& files, const std::vector<LogFile>& others) {
  return std::equal(files.begin(), files.end(), others.begin(), others.end(), [](const LogFile& a, const LogFile& b) {
    return a.path == b.path && a.inode == b.inode && a.device == b.device;
  });
}

}  // namespace

bool Output::IsLive() const {
  return folder == nullptr || folder->folder().IsLive();
}

bool OutputFiles::List(Output& output) {
  if (output.isFiles) {
    return true;
  }
  if (!output.folder->Refresh()) {
    return false;
  }
  output.files = FilesOf(output);
  return true;
}

bool OutputFiles::Hold(Output& output) {
  constexpr int kMostTries = 20;
  bool isHeld = true;
  for (int tries = 0; tries < kMostTries && !output.isFiles && output.IsLive(); ++tries) {
    isHeld = true;
    for (LogFile& file : output.files) {
      if (IsMoved(file)) {
        file.held = file.folder->Open(file.Name());
        isHeld &= file.held || (errno != EMFILE && errno != ENFILE);
      }
    }
    const bool isOfMembers = std::all_of(output.files.begin(), output.files.end(),
                                         [](const LogFile& file) { return file.kind == LogFile::Kind::kMapped; });
    if (isOfMembers || !isHeld) {
      return isHeld;
    }
    if (!output.folder->Update()) {
      return false;
    }
    std::vector<LogFile> again = FilesOf(output);
    if (IsSameList(output.files, again)) {
      return true;
    }
    output.files = std::move(again);
  }
  return isHeld;
}

void OutputFiles::LetGo(Output& output) {
  for (LogFile& file : output.files) {
    file.held = ByteRange();
  }
}
