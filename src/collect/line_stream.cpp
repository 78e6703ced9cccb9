#include "collect/line_stream.h"

#include <string.h>

#include "logfile/log_output.h"
#include "platform/local_time.h"
#include "safestr/safestr.h"
#include "thread/interruptible.h"
#include "thread/thread_base.h"

namespace {

constexpr size_t kTextLength = LineStream::kTextSize - 1;
constexpr size_t kNoteSize = 128;

}  // namespace

bool LineClock::Update() {
  gettimeofday(&now, nullptr);
  if (now.tv_sec != second) {
    tm local;
    usable = localTime(now.tv_sec, &local) && strftime(clock, sizeof clock, "%m-%d %H:%M:%S", &local) > 0;
    second = now.tv_sec;
  }
  return usable;
}

LineStream::LineStream(LogOutput& target, bool mayRetry) : output(target), retries(mayRetry) {}

size_t LineStream::FormattedLength(const char* text, int result) {
  return result >= 0 ? static_cast<size_t>(result) : strnlen(text, kTextSize);
}

bool LineStream::Take(size_t size) {
  output.beginRun();
  const bool written = EmitLines(size);
  int refused = output.endRun();
  while (refused != 0 && Pause()) {
    refused = output.offerAgain();
  }
  return written && refused == 0;
}

bool LineStream::EmitLines(size_t size) {
  char* end = buffer + kept + size;
  *end = '\0';
  if (char* zero = static_cast<char*>(memchr(freeSpace(), '\0', size)); zero != nullptr) {
    end = zero;
  }
  char* line = buffer;
  char* search = freeSpace();  // what was kept holds no line feed
  while (char* feed = static_cast<char*>(memchr(search, '\n', static_cast<size_t>(end - search)))) {
    *feed = '\0';
    if (feed != line && !Emit(line)) {
      return false;
    }
    line = search = feed + 1;
  }
  kept = static_cast<size_t>(end - line);
  if (kept == kTextLength) {
    kept = 0;
    return Emit(line);
  }
  memmove(buffer, line, kept);
  return true;
}

void LineStream::NoteFailedRead(int error) {
  ++failedReads;
  readError = error;
}

bool LineStream::Emit(const char* line) {
  return EmitNotes() && WriteLine(line);
}

/// Tells what may have cost text. The notes stand where the text would.
bool LineStream::EmitNotes() {
  char note[kNoteSize];
  if (failedReads != 0) {
    snprintf_s(note, sizeof note, sizeof note - 1, "quilcat: %u reads failed (%s), text may be missing here",
               failedReads, strerror(readError));
    failedReads = 0;
    if (!WriteLine(note)) {
      return false;
    }
  }
  if (pauses != 0) {
    snprintf_s(note, sizeof note, sizeof note - 1,
               "quilcat: nothing could be written for %u s, text may be missing here", pauses);
    pauses = 0;
    return WriteLine(note);
  }
  return true;
}

bool LineStream::WriteLine(const char* line) {
  const int result = clock.Update() ? snprintf_s(text, kTextSize, kTextLength, "%s.%03ld %s\n", clock.text(),
                                                 clock.milliseconds(), line)
                                    : snprintf_s(text, kTextSize, kTextLength, "%s\n", line);
  const size_t length = FormattedLength(text, result);
  while (output.logcatWrite(text, length, true) != 0) {
    // The file may go meanwhile: the next write is to look again.
    output.endRun();
    if (!Pause()) {
      return false;
    }
    output.beginRun();
  }
  return true;
}

/// Waits for a second. False: there is to be no further try. A stop ends the wait and has one more follow: the room
/// that the disk lacked may be there by now.
bool LineStream::Pause() {
  if (!retries || ThreadBase::currentStopRequested()) {
    return false;
  }
  sleepSeconds(1);
  ++pauses;
  return true;
}
