// A platform log and a malloc that crash on demand while they hold their locks. Both stand in the
// test program, in front of the real ones, for the plug-in too.
#pragma once

#include <string>

namespace quillon::test {

enum class Place { kPlain, kMalloc, kLogger };
enum class Crash { kFault, kAbort, kTrap, kTermination };

// Crashes the calling thread.
void crash(Crash kind);

// Crashes the calling thread inside malloc or inside the platform log, with their lock held, or in
// code of its own. `log` is a call that writes to the platform log.
void crashIn(Place place, Crash kind, void (*log)());

// Makes malloc take its lock from now on.
void lockMalloc();

// Takes the locks of the platform log, of stdio, of the loader and of malloc in a thread that never
// lets them go, and returns once it has them.
void holdEveryLock();

// What the process and its children have logged since the last call: one "PRIORITY TEXT" a line.
std::string takeLog();

// Whether that log holds a text.
bool isInLog(const char* text);

// While it lives, each record takes so long to be logged.
class SlowLog {
 public:
  explicit SlowLog(unsigned microseconds);
  ~SlowLog();
  SlowLog(const SlowLog&) = delete;
  SlowLog& operator=(const SlowLog&) = delete;
};

}  // namespace quillon::test
