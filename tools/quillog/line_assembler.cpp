#include "quillog/line_assembler.h"

#include <string.h>

#include "quillog/line_times.h"

namespace {

/// The writer's lines are 8191 bytes at most, but some have no line feed: more than this is handed on in pieces.
constexpr size_t kMostUnfinished = 1048576;

}  // namespace

void LineAssembler::OnStart() {
  Finish(true);
  afterGap = false;
}

void LineAssembler::OnGap() {
  Finish(false);
  afterGap = true;
}

void LineAssembler::OnText(const char* text, size_t size, bool verified) {
  if (afterGap && !LineTimes::BeginsWithTime(text, size)) {
    const auto* feed = static_cast<const char*>(memchr(text, '\n', size));
    if (feed == nullptr) {
      return;
    }
    size -= static_cast<size_t>(feed + 1 - text);
    text = feed + 1;
  }
  afterGap = false;
  const auto* last = static_cast<const char*>(memrchr(text, '\n', size));
  if (!unfinished.empty()) {
    const auto* first = last == nullptr ? nullptr : static_cast<const char*>(memchr(text, '\n', size));
    const size_t length = first == nullptr ? size : static_cast<size_t>(first + 1 - text);
    unfinished.append(text, length);
    unfinishedVerified &= verified;
    if (first != nullptr || unfinished.size() > kMostUnfinished) {
      Finish(true);
    }
    text += length;
    size -= length;
  }
  if (last != nullptr && text <= last) {
    const size_t length = static_cast<size_t>(last + 1 - text);
    sink.OnLines(text, length, verified);
    text += length;
    size -= length;
  }
  if (size > 0) {
    unfinished.assign(text, size);
    unfinishedVerified = verified;
  }
}

size_t LineAssembler::Finish(bool keepUnfinished) {
  const size_t size = unfinished.size();
  if (keepUnfinished && size > 0) {
    sink.OnLines(unfinished.data(), size, unfinishedVerified);
  }
  unfinished.clear();
  unfinishedVerified = true;
  return keepUnfinished ? 0 : size;
}
