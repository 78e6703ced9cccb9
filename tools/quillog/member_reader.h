#ifndef QUILCAT_TOOLS_QUILLOG_MEMBER_READER_H_
#define QUILCAT_TOOLS_QUILLOG_MEMBER_READER_H_

#include <zlib.h>

#include <memory>

#include "quillog/bytes/byte_window.h"
#include "quillog/file_reader.h"

/// Reads a compressed mapped log file: gzip members (RFC 1952), followed by zeros while the file is open.
///
/// A member's text is handed on as a whole once its checksum and length are found to be right. After anything else
/// reading continues at the next header. A member that was broken off is decoded up to the end of its bytes: zeros or
/// the end of the file. A member that contradicts itself gives nothing: nobody knows where its bytes stopped being the
/// writer's, so none of its lines can be told from one that was never written.
///
/// Five of the ten bytes of a header are zeros, which text never holds: neither text nor a stored block of it is taken
/// for a header.
class MemberReader : public FileReader {
 public:
  MemberReader(const ByteRange& file, TextSink& textSink, bool settles);
  ~MemberReader() override;

  void Read(bool growing) override;

 private:
  /// What decoding gave.
  enum class Outcome { kWhole, kCutShort, kContradiction };

  bool AtHeader();
  bool ReadMember();
  Outcome Decode(const uint8_t* bytes, size_t size);
  bool Settled();
  bool MayBeWholeByNow();
  void Salvage(uint64_t next);
  uint64_t EndOfRealBytes(uint64_t end);
  void SkipForeign(uint64_t next);
  void ReportBroken(Outcome outcome, uint64_t real, uint64_t next);

  const bool maySettle;
  ByteWindow window;
  z_stream stream = {};
  const std::unique_ptr<uint8_t[]> text;
  size_t textSize = 0;     ///< bytes that Decode() gave
  size_t consumed = 0;     ///< bytes that Decode() took
  const char* fault = "";  ///< why Decode() found a contradiction
  uint64_t position = 0;   ///< of the next byte that was not handed on
  int triesLeft = 5;
  uint64_t rereadAt = UINT64_MAX;
  int rereadsLeft = 1000;  ///< a file of junk is not read again and again
};

#endif  // QUILCAT_TOOLS_QUILLOG_MEMBER_READER_H_
