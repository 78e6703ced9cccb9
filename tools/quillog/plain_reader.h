#ifndef QUILCAT_TOOLS_QUILLOG_PLAIN_READER_H_
#define QUILCAT_TOOLS_QUILLOG_PLAIN_READER_H_

#include "quillog/bytes/byte_window.h"
#include "quillog/file_reader.h"

/// Reads a plain log file of factory mode. Text holds no zero bytes: those that are there were never written.
class PlainReader : public FileReader {
 public:
  PlainReader(const ByteRange& file, TextSink& textSink) : FileReader(textSink), window(file) { sink.OnStart(); }

  void Read(bool growing) override;

  /// CRC-32 of all text so far: tells whether a file in an archive is this one.
  unsigned long checksum() const { return crc; }

 private:
  void HandOn(const uint8_t* bytes, size_t size);

  ByteWindow window;
  uint64_t position = 0;
  unsigned long crc = 0;
};

#endif  // QUILCAT_TOOLS_QUILLOG_PLAIN_READER_H_
