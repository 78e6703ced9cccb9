#ifndef QUILCAT_LOGFILE_FILE_NAMES_H_
#define QUILCAT_LOGFILE_FILE_NAMES_H_

#include <stddef.h>
#include <stdint.h>

/// What follows the output path in the name of an indexed file, ".I000.20240131-235959.gz": offsets and lengths in
/// bytes.
namespace FileNames {

constexpr int32_t kIndexes = 1000;  ///< 000 to 999
constexpr uint32_t kIndexOffset = 2;
constexpr uint32_t kIndexLength = 3;
constexpr uint32_t kTimeStampOffset = 6;
constexpr uint32_t kTimeStampLength = 15;
constexpr uint32_t kSuffixLength = 24;

/// Numbers of the names that factory mode gives: 0 to 4.
constexpr int kOldStyleNumbers = 5;

/// Rotated files of factory mode, O.1 to O.5, which become one archive.
constexpr int kFilesPerArchive = 5;

/// Archives that `files` log files take.
constexpr size_t archivesFor(size_t files) {
  return (files + kFilesPerArchive - 1) / kFilesPerArchive;
}

}  // namespace FileNames

#endif  // QUILCAT_LOGFILE_FILE_NAMES_H_
