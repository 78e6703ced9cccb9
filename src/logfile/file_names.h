#ifndef QUILCAT_LOGFILE_FILE_NAMES_H_
#define QUILCAT_LOGFILE_FILE_NAMES_H_

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

/// The names of an output's files, each kind with its examples: one function forms them, another takes them apart. An
/// output is a path or a base name, and the names are too; what is no name of the kind gives an empty output.
struct FileNames {
  static constexpr int32_t kIndexes = 1000;   ///< of indexed files: 000 to 999
  static constexpr int kOldStyleNumbers = 5;  ///< of the names that mmap mode removes: 0 to 4
  static constexpr int kFilesPerArchive = 5;  ///< rotated files O.1 to O.5, which become one archive
  static constexpr char kGzip[] = ".gz";      ///< ends indexed files and archives

  /// What follows the output in the name of an indexed file, ".I000.20240131-235959.gz": offsets and lengths in bytes.
  static constexpr uint32_t kIndexOffset = 2;
  static constexpr uint32_t kIndexLength = 3;
  static constexpr uint32_t kTimeStampOffset = 6;
  static constexpr uint32_t kTimeStampLength = 15;
  static constexpr uint32_t kSuffixLength = 24;

  struct Indexed {
    std::string output;
    std::string index;      ///< three digits
    std::string timeStamp;  ///< "20240131-235959"
  };

  // "/d/log", 7, "20240131-235959" <-> "/d/log.I007.20240131-235959.gz"
  // "log", 999, "19000100-000000"  <-> "log.I999.19000100-000000.gz"
  //                        nothing <-- "/d/.I007.20240131-235959.gz", "/d/log.I07.20240131-235959.gz"
  static std::string indexed(const std::string& output, int32_t index, const std::string& timeStamp);
  static Indexed parseIndexed(const std::string& name);

  // "/d/log" --> "/d/log", the link to the newest indexed file
  // "/d/log" --> "/d/log.1", the link to the one before it
  //  nothing <-- "/d/log.1": a rotated file of factory mode has that name too
  static std::string previousLink(const std::string& output) { return rotated(output, 1); }

  // "/d/log", 3 <-> "/d/log.3"
  // "log", 5    <-> "log.5"
  // "log", 0    --> "log.0", an old-style name; nothing <-- "log.0", "log.6", "log.12"
  static std::string rotated(const std::string& output, int number) { return output + '.' + std::to_string(number); }
  static std::string outputOfRotated(const std::string& name);

  static constexpr char kArchiveEnd[] = ".tar.gz";
  // "/d/log", 0 <-> "/d/log-0.tar.gz"
  // "log-1", 12 <-> "log-1-12.tar.gz"
  //     nothing <-- "log.tar.gz", "log-.tar.gz", "log-0.gz"
  static std::string archive(const std::string& output, int number) {
    return output + '-' + std::to_string(number) + kArchiveEnd;
  }
  static std::string outputOfArchive(const std::string& name);

  static constexpr char kPackingEnd[] = "_tmp";
  // "/d/log" <-> "/d/log_tmp", the directory where rotated files "log.1" to "log.5" are packed
  //    "log" <-> "log_tmp"
  //  nothing <-- "_tmp", "log_tmp.moved.0"
  static std::string packingDirectory(const std::string& output) { return output + kPackingEnd; }
  static std::string outputOfPackingDirectory(const std::string& name) { return without(name, kPackingEnd); }

  /// An archive there, while it is written and once it is whole.
  static constexpr char kUnfinished[] = "unfinished.tar.gz";
  static constexpr char kPacked[] = "packed.tar.gz";

  // "/d/log_tmp", 0 --> "/d/log_tmp.moved.0", where another directory of that name goes
  // "log_tmp", 12   --> "log_tmp.moved.12"
  //         nothing <-- "log_tmp.moved.0": no output reads them
  static std::string movedAway(const std::string& directory, int number) {
    return directory + ".moved." + std::to_string(number);
  }

  // "/d/log" --> "/d/log.0", "/d/log-0.tar.gz", ..., "/d/log.4", "/d/log-4.tar.gz"
  //       "" --> ".0", "-0.tar.gz", ..., ".4", "-4.tar.gz"
  //  nothing <-- "/d/log.4": rotated files and archives have such names too
  static std::vector<std::string> oldStyle(const std::string& output);

  /// Archives that `files` log files take.
  static constexpr size_t archivesFor(size_t files) { return (files + kFilesPerArchive - 1) / kFilesPerArchive; }

 private:
  static std::string without(const std::string& name, const char* end);
};

#endif  // QUILCAT_LOGFILE_FILE_NAMES_H_
