#ifndef QUILCAT_MMAPLOG_QUIL_H_
#define QUILCAT_MMAPLOG_QUIL_H_

#include <pthread.h>
#include <signal.h>
#include <stddef.h>
#include <sys/types.h>
#include <time.h>

#include <atomic>

#include "mmaplog/log_buffer.h"
#include "mmaplog/log_mmap.h"
#include "mmaplog/sync_queue.h"
#include "thread/mutex.h"

/// The compressed mapped-log writer of one collector: a compressing buffer, the mapped file that it writes to now, and
/// a timer thread that flushes the buffer five seconds after text came. It sleeps for good while there is nothing to
/// do.
///
/// Any thread may call Write(), Flush() and SetOutputPath(). SIGUSR1 belongs to this class: it ends a timer thread. The
/// constructor blocks it in the calling thread, and so in every thread that is created later; a timer thread opens it
/// only while it sleeps, so that it never ends while it holds a lock.
///
/// A file is brought to disk with its first text (NewFile), and (fdatasync) as soon as the next one is open, by a
/// thread for that (sync_queue.h).
class Quil {
 public:
  /// Starts the timer thread. Without it ("Quil:pthread create failed.") text reaches the file when a block is full, by
  /// Flush() and by the destructor.
  ///
  /// With `syncSeconds`, the current file, too, is brought to disk after a flush by the timer, when that was last begun
  /// that many seconds ago or more and is done: what a power cut takes is bounded then. 0 leaves the current file to
  /// the kernel.
  ///
  /// With `keepRefused` nothing that was taken is dropped while the file refuses it (log_buffer.h); the timer thread
  /// offers it again every five seconds.
  explicit Quil(unsigned syncSeconds = 0, bool keepRefused = false);
  /// Ends and joins the timer thread, then writes pending text to the current file, cuts the file to its written length
  /// and waits until all files are on disk. No other thread may use the writer any more. Text that waits for another
  /// file than one that is over is gone.
  ~Quil();
  Quil(const Quil&) = delete;
  Quil& operator=(const Quil&) = delete;

  /// Closes the current file and continues in a new one, made at `path`, where there must be nothing. Text that is
  /// pending goes to the new file: Flush() first. `directory` and `made` tell where it is made, as NewFile::Expect().
  /// False: the new file could not be made and mapped; writes then fail once a block is full.
  bool SetOutputPath(const char* path, int directory = -1, unsigned made = 0) EXCLUDES(writerLock);

  /// The current file, -1 when there is none. Borrowed until the next SetOutputPath(), for the thread that calls that
  /// one: to examine the file and change its mode.
  int outputDescriptor() EXCLUDES(writerLock);

  /// True when somebody else has cut or deleted the current file, its disk failed, or it is full: nothing more goes
  /// into it. The text from the block on that it could not take waits, as far as it fits, for SetOutputPath(). Takes no
  /// lock.
  bool outputOver() const { return over; }

  /// Has `thread` of this process woken (thread_base.h) by each flush that leaves text since the output is over; by the
  /// timer every five seconds. It is the one that calls SetOutputPath().
  void wakeForNextFile(pid_t thread) { waker = thread; }

  /// True when there is a current file and no text is in it yet.
  bool outputEmpty() EXCLUDES(writerLock);

  /// Appends `len` bytes of text. False: the text was dropped for lack of room, or the block that it completed was
  /// lost; with `keepRefused`: the text was not taken.
  bool Write(const void* data, size_t len) EXCLUDES(writerLock);

  /// Brings all pending text to the current file. False: there is text that no file took.
  bool Flush() EXCLUDES(writerLock);

  /// The same, but nothing when another thread is using the writer, since that may be stuck.
  void FlushUnlessBusy() EXCLUDES(writerLock);

 private:
  static void* timer_thread(void* writer);
  static void thread_exit_handler(int signalNumber);

  void RunTimer(const sigset_t& whileAsleep);
  void FlushByTimer() EXCLUDES(writerLock);
  bool FlushBuffer() REQUIRES(writerLock);
  void SyncFirstText() REQUIRES(writerLock);
  void SyncWhenDue() REQUIRES(writerLock);
  void SetTimer(const timespec& delay) REQUIRES(writerLock);
  void SyncFinished(int fd);

  LogBuffer* buffer PT_GUARDED_BY(writerLock) = nullptr;
  LogMmap* file GUARDED_BY(writerLock) = nullptr;
  NewFile newFile GUARDED_BY(writerLock);
  bool flushSet GUARDED_BY(writerLock) = false;  ///< the timer goes off in time for what is pending
  bool unsynced GUARDED_BY(writerLock) = false;  ///< text came since the current file was last brought to disk
  time_t lastSync GUARDED_BY(writerLock) = 0;    ///< seconds of the monotonic clock, 0: never
  std::atomic<bool> over{false};
  std::atomic<pid_t> waker{0};
  Mutex writerLock;
  SyncQueue syncs;
  const time_t syncPeriod;
  int flushTimer;  ///< goes off when text is to be flushed; -1: every period
  pthread_t timerThread = {};
  bool timerStarted = false;
};

#endif  // QUILCAT_MMAPLOG_QUIL_H_
