#include "mmaplog/log_buffer.h"

#include <stdio.h>
#include <string.h>

#include "mmaplog/log_mmap.h"

using namespace LogFormat;

namespace {

// The oldest zlib that the device may bring: its stream record is the one that later versions take as well.
constexpr char kZlibVersion[] = "1.2.8";

}  // namespace

LogBuffer::LogBuffer(bool keepRefused) : keepsRefused(keepRefused) {
  MutexLock held(lock);
  SetUpStream();
}

/// False: reported.
bool LogBuffer::SetUpStream() {
  streamReady = deflateInit2_(&stream, kDeflateLevel, Z_DEFLATED, kGzipWindowBits, kDeflateMemLevel, Z_DEFAULT_STRATEGY,
                              kZlibVersion, static_cast<int>(sizeof stream)) == Z_OK;
  if (!streamReady) {
    fprintf(stderr, "LogBuffer:deflateInit2 failed.\n");
  }
  return streamReady;
}

LogBuffer::~LogBuffer() {
  Flush();
  MutexLock held(lock);
  if (deflateEnd(&stream) != Z_OK) {
    fprintf(stderr, "LogBuffer:deflateEnd failed.\n");
  }
}

void LogBuffer::SetupMap(LogMmap* file) {
  target = file;
}

bool LogBuffer::Write(const void* data, size_t len) {
  if (data == nullptr) {
    return false;
  }
  MutexLock held(lock);
  if (!streamReady && !SetUpStream()) {
    return false;
  }
  if (keepsRefused) {
    return TakeOrRefuse(data, len);
  }
  if (len > inFree) {
    fprintf(stderr, "LogBuffer:write_to_out_buffer failed.\n");
    return false;
  }
  Append(data, len);
  if (inUsed < kBlockThreshold) {
    return true;
  }
  const bool kept = CompressBlock();
  return target != nullptr && HandOver() && kept;
}

bool LogBuffer::TakeOrRefuse(const void* data, size_t len) {
  if (len > inFree) {
    Drain();
  }
  if (len > inFree) {
    return false;
  }
  Append(data, len);
  if (inUsed >= kBlockThreshold) {
    Drain();
  }
  return true;
}

void LogBuffer::Append(const void* data, size_t len) {
  memcpy(inBuffer + inUsed, data, len);
  inUsed += static_cast<uint32_t>(len);
  inFree = kBlockArea - inUsed;
}

bool LogBuffer::Flush() {
  MutexLock held(lock);
  if (keepsRefused) {
    Drain();
  } else {
    if (inUsed != 0) {
      CompressBlock();
    }
    HandOver();
  }
  return inUsed == 0 && outUsed == 0;
}

/// Brings what is pending to the file as far as the file takes it: the next block only when the one before is gone.
void LogBuffer::Drain() {
  HandOver();
  while (outUsed == 0 && inUsed != 0) {
    const uint32_t size = AppendMember(inBuffer, inUsed) ? inUsed : inUsed / 2;
    if (size != inUsed && !AppendMember(inBuffer, size)) {
      return;
    }
    DropInput(size);
    HandOver();
  }
}

/// Turns the pending text into gzip members. One member as a rule; text that does not shrink enough for the room left
/// becomes two members of half the text each, each handed over whole so that a refused hand-over cannot leave half a
/// member in the file. False: text was lost.
bool LogBuffer::CompressBlock() {
  bool kept = AppendMember(inBuffer, inUsed);
  if (!kept && target != nullptr && !target->isOver()) {
    const uint32_t half = inUsed / 2;
    kept = HandOver();
    kept = AppendMember(inBuffer, half) && HandOver() && kept;
    kept = AppendMember(inBuffer + half, inUsed - half) && HandOver() && kept;
  }
  DropInput(inUsed);
  return kept;
}

/// Appends `size` bytes of text to the compressed bytes as one gzip member, no bytes as none. False: it does not fit,
/// nothing is appended.
bool LogBuffer::AppendMember(const uint8_t* text, uint32_t size) {
  if (size == 0) {
    return true;
  }
  stream.next_in = const_cast<uint8_t*>(text);
  stream.avail_in = size;
  stream.next_out = outBuffer + outUsed;
  stream.avail_out = outFree;
  const bool finished = deflate(&stream, Z_FINISH) == Z_STREAM_END;
  if (finished) {
    outFree = stream.avail_out;
    outUsed = kBlockArea - outFree;
  }
  deflateReset(&stream);
  return finished;
}

/// Passes the compressed bytes to the file, which keeps them or refuses them whole; they are gone in both cases, unless
/// refused ones are kept. Without a file, or with one that is over, they stay. False: they were refused.
bool LogBuffer::HandOver() {
  if (target == nullptr || outUsed == 0) {
    return true;
  }
  const bool written = target->Write(outBuffer, outUsed);
  if (target->isOver()) {
    return true;
  }
  if (written || !keepsRefused) {
    ClearOutput();
  }
  return written;
}

/// Removes the first `size` bytes of the pending text.
void LogBuffer::DropInput(uint32_t size) {
  memmove(inBuffer, inBuffer + size, inUsed - size);
  memset(inBuffer + inUsed - size, 0, size);
  inUsed -= size;
  inFree = kBlockArea - inUsed;
}

void LogBuffer::ClearOutput() {
  memset(outBuffer, 0, outUsed);
  outUsed = 0;
  outFree = kBlockArea;
}
