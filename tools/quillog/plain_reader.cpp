#include "quillog/plain_reader.h"

#include <string.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>

void PlainReader::Read(bool growing) {
  window.Forget();
  if (window.End() < position) {
    // Somebody emptied the file; the daemon continues at its beginning.
    position = 0;
    crc = 0;
    summary = FileSummary();
    sink.OnStart();
  }
  size_t available = 0;
  for (const uint8_t* bytes; bytes = window.At(position, 1, &available), available > 0;) {
    const auto* zero = static_cast<const uint8_t*>(memchr(bytes, 0, available));
    const size_t size = zero != nullptr ? static_cast<size_t>(zero - bytes) : available;
    HandOn(bytes, size);
    position += size;
    if (zero == nullptr) {
      continue;
    }
    const uint64_t next = window.EndOfZeros(position);
    const bool isLast = window.IsEnd(next);
    if (isLast && growing) {
      break;
    }
    ReportDamage(position, isLast ? FileState::kTorn : FileState::kDamaged,
                 std::to_string(next - position) + " zero bytes in the place of text, which is lost");
    sink.OnGap();
    position = next;
  }
  summary.bytes = window.End();
  if (window.Failed()) {
    ReportDamage(position, FileState::kTorn, "cannot be read from here");
  }
  if (summary.textBytes == 0 && summary.state == FileState::kClosed) {
    summary.state = FileState::kEmpty;
  }
}

void PlainReader::HandOn(const uint8_t* bytes, size_t size) {
  if (size == 0) {
    return;
  }
  crc = crc32_z(crc, bytes, size);
  sink.OnText(reinterpret_cast<const char*>(bytes), size, true);
  summary.textBytes += size;
  summary.state = summary.state == FileState::kEmpty ? FileState::kClosed : summary.state;
}
