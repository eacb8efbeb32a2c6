// How far the standard-error reader is, for code that must not take a lock: signal handlers.
//
// The reader tells before it takes a chunk out of the pipe and after it has dealt with it: flags,
// error file and log. Hence, when the pipe is seen empty and the reader is then seen not busy, all
// that was in it is dealt with.
//
// Thread safety: the reader's functions belong to the thread that is or starts the reader; the rest
// is async-signal-safe.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

class ReaderProgress {
 public:
  // The reader's side, in this order.
  void starting();  // before its thread is made
  void running();   // first thing on its thread
  void taking();    // something is to be read, and is read next
  void done(std::size_t bytes);
  void ended();  // also: its thread could not be made

  // Whether a reader empties the pipe while the caller waits: there is one, on another thread.
  bool readsBesideCaller() const;
  // The same, and in this process: what it finds, the caller sees. A forked child has no such
  // reader.
  bool scansBesideCaller() const;

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
