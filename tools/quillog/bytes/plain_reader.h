#ifndef QUILCAT_TOOLS_QUILLOG_BYTES_PLAIN_READER_H_
#define QUILCAT_TOOLS_QUILLOG_BYTES_PLAIN_READER_H_

#include "quillog/bytes/file_reader.h"

/// Reads a plain log file of factory mode. Text holds no zero bytes: those that are there were never written.
class PlainReader : public FileReader {
 public:
  explicit PlainReader(const ByteRange& bytes) : FileReader(bytes) {}

  bool Next(Tail tail, Piece* piece) override;
  bool Head(uint64_t* at, std::string* text) override;
  void Limit(uint64_t from, uint64_t to) override;
  const std::string* Identity(uint64_t) const override { return &identity; }

 private:
  bool Look(Tail tail, Piece* piece);

  std::string identity;
  uint64_t position = 0;
  uint64_t limit = UINT64_MAX;
  bool looking = false;
};

#endif  // QUILCAT_TOOLS_QUILLOG_BYTES_PLAIN_READER_H_
