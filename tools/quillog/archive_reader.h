#ifndef QUILCAT_TOOLS_QUILLOG_ARCHIVE_READER_H_
#define QUILCAT_TOOLS_QUILLOG_ARCHIVE_READER_H_

#include <string>
#include <vector>

#include "quillog/file_reader.h"
#include "quillog/gzip_source.h"

struct archive;

/// Reads an archive of factory mode: the files B.5 down to B.1 in a tar stream that is one gzip member.
///
/// The tar stream holds them newest first, so each file takes a pass of its own. The first pass checks the checksum of
/// the whole; of an archive that is cut short the files are read as far as its bytes go, unverified; one that
/// contradicts itself gives nothing.
class ArchiveReader : public FileReader {
 public:
  ArchiveReader(const ByteRange& file, TextSink& textSink) : FileReader(textSink), source(file) {}

  /// Reads everything the first time, nothing at a second.
  void Read(bool growing) override;

  /// Leaves out the oldest files, up to and including the last that has this size and CRC-32: they were read as plain
  /// files before they were packed. True: there is one.
  bool SkipUpTo(uint64_t size, unsigned long checksum);

 private:
  struct Entry {
    int64_t place;  ///< in the stream
    long number;    ///< of "B.3"; larger is older
    uint64_t size;
    bool whole;
    unsigned long checksum;
  };

  void Examine();
  bool List();
  void ReadEntry(const Entry& entry);
  template <typename Visit>
  bool ForEachEntry(Visit visit);

  GzipSource source;
  GzipSource::Verdict verdict = GzipSource::Verdict::kWhole;
  std::vector<Entry> entries;  ///< oldest first
  bool examined = false;
  bool done = false;
};

#endif  // QUILCAT_TOOLS_QUILLOG_ARCHIVE_READER_H_
