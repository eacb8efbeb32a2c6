#include "tests/system/crash/faulty_platform.h"

#include <link.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>

#include "platform/dlog.h"
#include "tests/support/shared_memory.h"
#include "tests/system/crash/child.h"

namespace quillon::test {
namespace {

struct Armed {
  Place place = Place::kPlain;
  Crash kind = Crash::kFault;
};

// Has a trivial constructor, so that malloc can read it at any time.
thread_local constinit Armed armed;

constinit std::atomic<bool> mallocLocks{false};
constinit std::atomic<unsigned> slowness{0};
constinit std::atomic<bool> sleepsMeanwhile{true};
pthread_mutex_t mallocLock = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t logLock = PTHREAD_MUTEX_INITIALIZER;

// Shared with the child processes.
struct Log {
  std::atomic<std::size_t> size;
  std::array<char, 1 << 20> text;
};

Log& sharedLog() {
  static Log& log = test::makeSharedMemory<Log>();
  return log;
}

// Created before the first child process.
[[maybe_unused]] const Log& log = sharedLog();

void append(const char* text, std::size_t size) {
  Log& target = sharedLog();
  const std::size_t begin = target.size.fetch_add(size);
  if (begin + size <= target.text.size()) {
    std::memcpy(target.text.data() + begin, text, size);
  }
}

void crashIfArmed(Place place) {
  if (armed.place == place) {
    armed.place = Place::kPlain;
    crash(armed.kind);
  }
}

void delay(std::chrono::microseconds time) {
  if (sleepsMeanwhile) {
    std::this_thread::sleep_for(time);
    return;
  }
  for (const auto end = std::chrono::steady_clock::now() + time;
       std::chrono::steady_clock::now() < end;) {
  }
}

std::atomic<bool> everyLockHeld{false};

[[noreturn]] int keepLocks(dl_phdr_info*, std::size_t, void*) {
  flockfile(stdout);
  flockfile(stderr);
  pthread_mutex_lock(&logLock);
  pthread_mutex_lock(&mallocLock);
  everyLockHeld = true;
  for (;;) {
    pause();
  }
}

}  // namespace

void crash(Crash kind) {
  switch (kind) {
    case Crash::kFault:
      fault();
      break;
    case Crash::kAbort:
      abort();
    case Crash::kTrap:
      raise(SIGTRAP);
      break;
    case Crash::kTermination:
      raise(SIGTERM);
      break;
  }
}

void crashIn(Place place, Crash kind, void (*writeLog)()) {
  if (place == Place::kPlain) {
    crash(kind);
    return;
  }
  armed = {place, kind};
  if (place == Place::kLogger) {
    writeLog();
  } else {
    free(malloc(1));
  }
}

void lockMalloc() { mallocLocks = true; }

void holdEveryLock() {
  std::thread([] { dl_iterate_phdr(keepLocks, nullptr); }).detach();
  while (!everyLockHeld) {
    std::this_thread::yield();
  }
}

std::string takeLog() {
  Log& source = sharedLog();
  std::string text(source.text.data(), std::min(source.size.load(), source.text.size()));
  source.size = 0;
  return text;
}

bool isInLog(const char* text) {
  const Log& source = sharedLog();
  const std::size_t size = std::min(source.size.load(), source.text.size());
  return std::string_view(source.text.data(), size).find(text) != std::string_view::npos;
}

SlowLog::SlowLog(unsigned microseconds, Thread meanwhile) {
  sleepsMeanwhile = meanwhile == Thread::kSleeps;
  slowness = microseconds;
}
SlowLog::~SlowLog() { slowness = 0; }

}  // namespace quillon::test

extern "C" int __dlog_print(int, int priority, const char*, const char* format, ...) {
  using namespace quillon::test;
  std::array<char, 1000> text;
  int size = std::snprintf(text.data(), text.size(), "%d ", priority);
  va_list arguments;
  va_start(arguments, format);
  size += std::vsnprintf(text.data() + size, text.size() - static_cast<std::size_t>(size), format,
                         arguments);
  va_end(arguments);
  pthread_mutex_lock(&logLock);
  crashIfArmed(Place::kLogger);
  if (const unsigned pause = slowness; pause > 0) {
    delay(std::chrono::microseconds(pause));
  }
  append(text.data(), std::min<std::size_t>(static_cast<std::size_t>(size), text.size() - 1));
  pthread_mutex_unlock(&logLock);
  return 0;
}

// A sanitizer replaces malloc itself.
#ifndef QUILLON_SANITIZED
extern "C" void* __libc_malloc(std::size_t size);

extern "C" void* malloc(std::size_t size) {
  using namespace quillon::test;
  if (!mallocLocks) {
    return __libc_malloc(size);
  }
  pthread_mutex_lock(&mallocLock);
  crashIfArmed(Place::kMalloc);
  void* memory = __libc_malloc(size);
  pthread_mutex_unlock(&mallocLock);
  return memory;
}
#endif
