#ifndef QUILCAT_MMAPLOG_QUIL_H_
#define QUILCAT_MMAPLOG_QUIL_H_

#include <pthread.h>
#include <stddef.h>

#include "mmaplog/log_buffer.h"
#include "mmaplog/log_mmap.h"
#include "thread/mutex.h"

/// The compressed mapped-log writer of one collector: a compressing buffer, the mapped file that it writes to now, and
/// a timer thread that flushes the buffer about every five seconds.
///
/// Any thread may call Write(), Flush() and SetOutputPath(). SIGUSR1 belongs to this class: it ends a timer thread. The
/// constructor blocks it in the calling thread, and so in every thread that is created later; a timer thread opens it
/// only while it sleeps, so that it never ends while it holds a lock.
class Quil {
 public:
  /// Starts the timer thread. Without it ("Quil:pthread create failed.") text reaches the file when a block is full, by
  /// Flush() and by the destructor.
  Quil();
  /// Ends and joins the timer thread, then writes pending text to the current file and cuts the file to its written
  /// length. No other thread may use the writer any more.
  ~Quil();
  Quil(const Quil&) = delete;
  Quil& operator=(const Quil&) = delete;

  /// Closes the current file and continues in a new one at `path`. Text that is pending goes to the new file: Flush()
  /// first. False: the new file could not be opened and mapped; writes then fail once a block is full.
  bool SetOutputPath(const char* path) EXCLUDES(writerLock);

  /// Appends `len` bytes of text. False: the text was dropped for lack of room, or the block that it completed was
  /// lost.
  bool Write(const void* data, size_t len) EXCLUDES(writerLock);

  /// Brings all pending text to the current file.
  void Flush() EXCLUDES(writerLock);

  /// The same, but nothing when another thread is using the writer, since that may be stuck.
  void FlushUnlessBusy() EXCLUDES(writerLock);

 private:
  static void* timer_thread(void* writer);
  static void thread_exit_handler(int signalNumber);

  LogBuffer* buffer PT_GUARDED_BY(writerLock) = nullptr;
  LogMmap* file GUARDED_BY(writerLock) = nullptr;
  Mutex writerLock;
  pthread_t timerThread = {};
  bool timerStarted = false;
};

#endif  // QUILCAT_MMAPLOG_QUIL_H_
