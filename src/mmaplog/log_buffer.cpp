#include "mmaplog/log_buffer.h"

#include <stdio.h>
#include <string.h>

#include "mmaplog/log_mmap.h"

using namespace LogFormat;

LogBuffer::LogBuffer(bool keepRefused) : keepsRefused(keepRefused) {
  MutexLock held(lock);
  SetUpCompressor();
}

/// False: reported.
bool LogBuffer::SetUpCompressor() {
  if (compressor.SetUp()) {
    return true;
  }
  fprintf(stderr, "LogBuffer:deflateInit2 failed.\n");
  return false;
}

LogBuffer::~LogBuffer() {
  Flush();
  MutexLock held(lock);
  if (!compressor.isSetUp()) {
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
  if (!SetUpCompressor()) {
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
  const auto length = static_cast<uint32_t>(compressor.Compress(inBuffer, size, outBuffer + outUsed, outFree));
  outUsed += length;
  outFree -= length;
  return length != 0;
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
