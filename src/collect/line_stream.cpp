#include "collect/line_stream.h"

#include <string.h>
#include <sys/time.h>

#include <algorithm>

#include "platform/local_time.h"
#include "safestr/safestr.h"
#include "thread/interruptible.h"
#include "thread/thread_base.h"

namespace {

constexpr size_t kTextLength = LineStream::kTextSize - 1;
constexpr size_t kNoteSize = 128;
constexpr size_t kMilliseconds = 15;  // where they are in a stamp

}  // namespace

bool LineClock::Update() {
  timeval now = {};
  gettimeofday(&now, nullptr);
  if (now.tv_sec != second) {
    tm local;
    usable = localTime(now.tv_sec, &local) && strftime(text, sizeof text, "%m-%d %H:%M:%S.000 ", &local) == kSize;
    second = now.tv_sec;
  }
  const auto milliseconds = static_cast<unsigned>(now.tv_usec / 1000);
  char* digits = text + kMilliseconds;
  digits[0] = static_cast<char>('0' + milliseconds / 100);
  digits[1] = static_cast<char>('0' + milliseconds / 10 % 10);
  digits[2] = static_cast<char>('0' + milliseconds % 10);
  return usable;
}

LineStream::LineStream(LogOutput& target, bool mayRetry) : output(target), retries(mayRetry) {}

size_t LineStream::FormattedLength(const char* text, int result) {
  return result >= 0 ? static_cast<size_t>(result) : strnlen(text, kTextSize);
}

bool LineStream::WriteCompleted(size_t size) {
  return EmitLines(size) && WriteRun();
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
    if (feed != line && !Emit(line, static_cast<size_t>(feed - line))) {
      return false;
    }
    line = search = feed + 1;
  }
  kept = static_cast<size_t>(end - line);
  if (kept == kTextLength) {
    kept = 0;
    return Emit(line, kTextLength);
  }
  memmove(buffer, line, kept);
  return true;
}

void LineStream::NoteFailedRead(int error) {
  ++failedReads;
  readError = error;
}

bool LineStream::Emit(const char* line, size_t length) {
  return EmitNotes() && AddLine(line, length);
}

/// Tells what may have cost text, in the place where the text would be.
bool LineStream::EmitNotes() {
  char note[kNoteSize];
  if (failedReads != 0) {
    snprintf_s(note, sizeof note, sizeof note - 1, "quilcat: %u reads failed (%s), text may be missing here",
               failedReads, strerror(readError));
    failedReads = 0;
    if (!AddLine(note, strlen(note))) {
      return false;
    }
  }
  if (pauses != 0) {
    snprintf_s(note, sizeof note, sizeof note - 1,
               "quilcat: nothing could be written for %u s, text may be missing here", pauses);
    pauses = 0;
    return AddLine(note, strlen(note));
  }
  return true;
}

/// Adds a line with its time to the run. One that is cut, and so has no line feed, ends the run.
bool LineStream::AddLine(const char* line, size_t length) {
  if (std::min(LineClock::kSize + length + 1, kTextLength) > sizeof run - runSize && !WriteRun()) {
    return false;
  }
  const size_t stampSize = clock.Update() ? LineClock::kSize : 0;
  const size_t taken = std::min(length, kTextLength - stampSize);
  char* text = run + runSize;
  memcpy(text, clock.stamp(), stampSize);
  memcpy(text + stampSize, line, taken);
  runSize += stampSize + taken;
  if (stampSize + taken == kTextLength) {
    return WriteRun();
  }
  run[runSize++] = '\n';
  return true;
}

/// Hands the run to the output. False: it did not take all.
bool LineStream::WriteRun() {
  size_t done = output.writeLines(run, runSize);
  while (done < runSize && Pause()) {
    done += output.writeLines(run + done, runSize - done);
  }
  if (done < runSize && retries) {
    done += output.writeLines(run + done, runSize - done);  // the last try may have begun long before the stop
  }
  const bool written = done == runSize;
  runSize = 0;
  return written;
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
