#ifndef QUILCAT_TOOLS_QUILLOG_BYTES_MEMBER_READER_H_
#define QUILCAT_TOOLS_QUILLOG_BYTES_MEMBER_READER_H_

#include <zlib.h>

#include <memory>

#include "quillog/bytes/file_reader.h"
#include "quillog/bytes/gzip_source.h"
#include "quillog/bytes/text_check.h"

struct libdeflate_decompressor;

/// Reads a compressed mapped log file: gzip members (RFC 1952), followed by zeros while the file is open.
///
/// A member's text is given as a whole once its checksum and length are found to be right. After anything else reading
/// continues at the next header. A member that was broken off is decoded up to the end of its bytes, zeros or the end
/// of the file, and given as far as it can be text. A member that contradicts itself gives nothing: nobody knows where
/// its bytes stopped being the writer's, so none of its lines can be told from one that was never written.
///
/// Five of the ten bytes of a header are zeros, which text never holds: neither text nor a stored block of it is taken
/// for a header.
///
/// Where somebody unpacked the file and packed it again, a member has another header or any size. It is checked in a
/// first pass and read in a second one.
class MemberReader : public FileReader {
 public:
  explicit MemberReader(const ByteRange& bytes);
  ~MemberReader() override;

  bool Next(Tail tail, Piece* piece) override;
  bool Head(uint64_t* at, std::string* text) override;
  void Limit(uint64_t from, uint64_t to) override;

 private:
  /// What decoding gave.
  enum class Outcome { kWhole, kCutShort, kContradiction };

  bool Look(Tail tail, Piece* piece);
  bool AtHeader(uint64_t at);
  bool AtGzip();
  bool ReadMember(Piece* piece);
  bool Inflate(const uint8_t* bytes, size_t size);
  Outcome Decode(const uint8_t* bytes, size_t size);
  bool OpenForeign(bool isHeader);
  bool ReadForeign(Piece* piece);
  bool Settled();
  bool MayBeWholeByNow();
  void Salvage(uint64_t next, Piece* piece);
  uint64_t EndOfRealBytes(uint64_t end);
  void SkipForeign(uint64_t next, Piece* piece);
  void ReportBroken(Outcome outcome, uint64_t real, uint64_t next, Piece* piece);
  void SetText(Piece* piece, const uint8_t* bytes, size_t size, bool verified);

  z_stream stream = {};
  libdeflate_decompressor* const fast;  ///< null: zlib decodes all
  const std::unique_ptr<uint8_t[]> text;
  size_t textSize = 0;     ///< bytes that decoding gave
  size_t consumed = 0;     ///< bytes that decoding took
  const char* fault = "";  ///< why Decode() found a contradiction
  uint64_t position = 0;   ///< of the next byte that was not handed on
  uint64_t limit = UINT64_MAX;
  bool looking = false;
  std::unique_ptr<GzipSource> foreign;  ///< a member of another packer, at the position
  TextCheck check;
  GzipSource::Verdict verdict = GzipSource::Verdict::kWhole;
  int triesLeft = 5;
  uint64_t rereadAt = UINT64_MAX;
  int rereadsLeft = 1000;  ///< a file of junk is not read again and again
};

#endif  // QUILCAT_TOOLS_QUILLOG_BYTES_MEMBER_READER_H_
