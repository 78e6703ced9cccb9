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
  if (len > inFree && keepsRefused) {
    Drain();
  }
  if (len > inFree) {
    if (!keepsRefused) {
      fprintf(stderr, "LogBuffer:write_to_out_buffer failed.\n");
    }
    return false;
  }
  memcpy(inBuffer + inUsed, data, len);
  inUsed += static_cast<uint32_t>(len);
  inFree = kBlockArea - inUsed;
  return inUsed < kBlockThreshold || Drain() || keepsRefused;
}

bool LogBuffer::Flush() {
  MutexLock held(lock);
  Drain();
  return inUsed == 0 && outUsed == 0;
}

/// Turns the pending text into gzip members and hands them over. One member as a rule; text that does not shrink enough
/// for the output area becomes two members of half the text each, each handed over whole so that a refused hand-over
/// cannot leave half a member in the file. What finds no room beside members that wait is dropped, or stays if refused
/// text is kept. False: there is no file, or text was lost, or stayed.
bool LogBuffer::Drain() {
  bool kept = HandOver();
  while (inUsed != 0) {
    uint32_t size = inUsed;
    if (!AppendMember(size) && (outUsed != 0 || !AppendMember(size = inUsed / 2))) {
      if (!keepsRefused) {
        DropInput(inUsed);
      }
      return false;
    }
    DropInput(size);
    kept = HandOver() && kept;
  }
  return kept && target != nullptr;
}

/// Appends the first `size` bytes of the pending text to the compressed bytes as one gzip member. False: it does not
/// fit, or is empty; nothing is appended.
bool LogBuffer::AppendMember(uint32_t size) {
  if (size == 0) {
    return false;
  }
  stream.next_in = inBuffer;
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
