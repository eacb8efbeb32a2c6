#include "tests/unit/util/capture/scripted_calls.h"

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "tests/support/next_call.h"

namespace quillon::test {
namespace {

// Records a call. Returns true if the call must fail.
bool fails(const std::string& call) {
  if (!calls().active) {
    return false;
  }
  calls().calls.push_back(call);
  errno = EMFILE;
  return call == calls().failing;
}

// Does the same for a call whose name includes the number of the call.
bool failsNumbered(const std::string& name) {
  const auto& all = calls().calls;
  const auto before = std::count_if(all.begin(), all.end(),
                                    [&](const auto& call) { return call.starts_with(name); });
  return fails(name + " " + std::to_string(before + 1));
}

std::string textOf(int mode, size_t size) {
  const std::string name = mode == _IOLBF ? "line" : mode == _IONBF ? "none" : "full";
  return name + " " + std::to_string(size);
}

}  // namespace

thread_local bool ScriptedCalls::active = false;

ScriptedCalls& calls() {
  // Never destroyed, because threads can run longer than main.
  static auto* instance = new ScriptedCalls;
  return *instance;
}

}  // namespace quillon::test

using quillon::test::calls;
using quillon::test::fails;
using quillon::test::failsNumbered;
using quillon::test::next;

extern "C" {

int setvbuf(FILE* stream, char* buffer, int mode, size_t size) noexcept {
  const std::string name = stream == stdout ? "stdout " : stream == stderr ? "stderr " : "other ";
  if (fails("setvbuf " + name + quillon::test::textOf(mode, size))) {
    return -1;
  }
  return next<decltype(&setvbuf)>("setvbuf")(stream, buffer, mode, size);
}

int pipe(int* ends) noexcept {
  return failsNumbered("pipe") ? -1 : next<decltype(&pipe)>("pipe")(ends);
}

int dup2(int from, int to) noexcept {
  return fails("dup2 " + std::to_string(to)) ? -1 : next<decltype(&dup2)>("dup2")(from, to);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
  if (failsNumbered(attributes == nullptr ? "pthread_create" : "pthread_create with attributes")) {
    return EAGAIN;
  }
  return next<decltype(&pthread_create)>("pthread_create")(thread, attributes, body, argument);
}

int pthread_setname_np(pthread_t thread, const char* name) noexcept {
  return fails(std::string("pthread_setname_np ") + name)
             ? ERANGE
             : next<decltype(&pthread_setname_np)>("pthread_setname_np")(thread, name);
}

int pthread_detach(pthread_t thread) noexcept {
  return failsNumbered("pthread_detach")
             ? EINVAL
             : next<decltype(&pthread_detach)>("pthread_detach")(thread);
}

ssize_t write(int descriptor, const void* bytes, size_t size) {
  if (quillon::test::ScriptedCalls::active && calls().lostRaces > 0) {
    --calls().lostRaces;
    errno = EAGAIN;
    return -1;
  }
  return next<decltype(&write)>("write")(descriptor, bytes, size);
}

int poll(pollfd* descriptors, nfds_t count, int milliseconds) {
  if (quillon::test::ScriptedCalls::active) {
    ++calls().polls;
    if (calls().interruptions > 0) {
      --calls().interruptions;
      errno = EINTR;
      return -1;
    }
  }
  return next<decltype(&poll)>("poll")(descriptors, count, milliseconds);
}

time_t time(time_t* result) noexcept {
  if (calls().onTime) {
    calls().onTime();
  }
  const time_t now = calls().now == 0 ? next<decltype(&time)>("time")(nullptr) : calls().now++;
  if (result != nullptr) {
    *result = now;
  }
  return now;
}

}  // extern "C"
