// The progress of the standard-error reader, for signal handlers, which must not take a lock.
//
// The reader sets the busy flag before it reads a chunk from the pipe, and clears it after the
// chunk was processed: the crash flags, the error file and the log. If a caller first finds the
// pipe empty and then finds the reader not busy, everything that was in the pipe has been
// processed.
//
// Thread safety: the functions for the reader may be called only by the reader thread or by the
// thread that starts it. All other functions are async-signal-safe.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

class ReaderProgress {
 public:
  // Called for the reader, in this order.
  void starting();               // before its thread is created
  void running();                // first call in its thread
  void taking();                 // before each read
  void done(std::size_t bytes);  // after a chunk was processed
  void ended();                  // also if its thread could not be created

  // Returns true if a reader exists and runs in another thread than the caller, so that it empties
  // the pipe while the caller waits.
  bool runsConcurrently() const;
  // Returns true if such a reader exists in this process, so that the caller sees the flags it
  // sets. Returns false in a forked child, which has no reader.
  bool runsConcurrentlyInThisProcess() const;

  // Returns the thread id of the reader, or 0 if it has not begun to run.
  pid_t thread() const { return thread_; }
  bool busy() const { return busy_; }
  std::uint64_t doneBytes() const { return done_; }

 private:
  std::atomic<pid_t> process_{0};  // 0: no reader
  std::atomic<pid_t> thread_{0};
  std::atomic<bool> busy_{false};
  std::atomic<std::uint64_t> done_{0};

  static_assert(std::atomic<pid_t>::is_always_lock_free && std::atomic<bool>::is_always_lock_free &&
                    std::atomic<std::uint64_t>::is_always_lock_free,
                "signal handlers read these");
};

extern ReaderProgress stderrProgress;
