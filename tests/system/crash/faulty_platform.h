// A platform log and a malloc that crash on demand while they hold their locks. The test program
// defines both, so they replace the real functions for the plug-in as well.
#pragma once

#include <string>

namespace quillon::test {

enum class Place { kPlain, kMalloc, kLogger };
enum class Crash { kFault, kAbort, kTrap, kTermination };

// Crashes the calling thread.
void crash(Crash kind);

// Crashes the calling thread in malloc or in the platform log while it holds the lock, or in other
// code. `log` is a function that writes to the platform log.
void crashIn(Place place, Crash kind, void (*log)());

// Makes malloc use its lock from now on.
void lockMalloc();

// Locks the platform log, stdio, the dynamic loader and malloc in a thread that never unlocks them.
// Returns when all are locked.
void holdEveryLock();

// Returns what the process and its children have logged since the last call, one "PRIORITY TEXT"
// per line.
std::string takeLog();

// Returns true if that log contains `text`.
bool isInLog(const char* text);

// Delays every record of the log during its lifetime.
class SlowLog {
 public:
  enum class Thread { kSleeps, kKeepsRunning };
  explicit SlowLog(unsigned microseconds, Thread meanwhile = Thread::kSleeps);
  ~SlowLog();
  SlowLog(const SlowLog&) = delete;
  SlowLog& operator=(const SlowLog&) = delete;
};

}  // namespace quillon::test
