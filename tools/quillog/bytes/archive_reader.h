#ifndef QUILCAT_TOOLS_QUILLOG_BYTES_ARCHIVE_READER_H_
#define QUILCAT_TOOLS_QUILLOG_BYTES_ARCHIVE_READER_H_

#include <string>
#include <vector>

#include "quillog/bytes/file_reader.h"
#include "quillog/bytes/gzip_source.h"
#include "quillog/bytes/text_check.h"

/// Reads an archive of factory mode: the files B.5 down to B.1 in a tar stream that is one gzip member.
///
/// The tar stream holds them newest first, so each file takes a pass of its own, and so does the checksum of the whole.
/// Where that is wrong or missing the files are given unverified, up to the first bytes that cannot be right: text that
/// no daemon logs, or no tar header where one must be.
class ArchiveReader : public FileReader {
 public:
  explicit ArchiveReader(const ByteRange& bytes) : FileReader(bytes), source(bytes) {}

  /// True when the tar stream of one gzip member begins there.
  static bool IsArchive(const ByteRange& bytes);

  bool Next(Tail tail, Piece* piece) override;
  bool PassOver(const FileSummary& known) override;
  const std::string* Identity(uint64_t member) const override;

 private:
  struct Entry {
    uint64_t place;  ///< in the stream, of its text
    long number;     ///< of "B.3"; larger is older
    uint64_t size;
    bool whole;
    unsigned long checksum;
    std::string identity;
  };

  void Examine();
  void List();
  bool AddEntry(const uint8_t* header);
  size_t CheckText(uint64_t rest, unsigned long* checksum);
  void NoteDamage(Piece* piece);
  bool ReadEntry(const Entry& entry, Piece* piece);

  GzipSource source;
  TextCheck check;
  GzipSource::Verdict verdict = GzipSource::Verdict::kWhole;
  std::vector<Entry> entries;  ///< oldest first
  size_t current = 0;
  bool isTar = true;  ///< up to its end
  bool tooMany = false;
  bool examined = false;
  bool damageTold = false;
  bool atStart = true;  ///< of the current entry
};

#endif  // QUILCAT_TOOLS_QUILLOG_BYTES_ARCHIVE_READER_H_
