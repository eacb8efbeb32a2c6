// Tests of the built plug-in in processes that end abnormally while their standard streams are
// captured.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <thread>

#include "quillon_tv_plugin.h"
#include "tests/support/precedence.h"
#include "tests/support/sanitized.h"
#include "tests/system/crash/child.h"
#include "tests/system/crash/faulty_platform.h"
#include "tests/system/torture/device_main.h"

namespace quillon::test {
namespace {

using ::testing::AnyOf;
using ::testing::ContainsRegex;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kMarker[] = "/tmp/dotnet_dont_create_dump";

template <typename Function>
Function* exported(const char* name) {
  static void* plugin = dlopen(QUILLON_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
  return reinterpret_cast<Function*>(dlsym(plugin, name));
}

#define CALL(name) exported<decltype(name)>(#name)

void say(const char* text) {
  if (write(STDERR_FILENO, text, std::strlen(text)) < 0) {
    _exit(99);
  }
}

// Does the same and waits until the reader has processed the text, so that the test does not depend
// on its speed.
void sayAndAwait(const std::string& text) {
  say(text.c_str());
  while (!isInLog(text.substr(0, text.find('\n')).c_str())) {
    std::this_thread::yield();
  }
}

// Calls the plug-in like a launcher, up to the entry point of the application. The readers then
// run.
void launchPlugin() {
  CALL(plugin_initialize)("inhouse");
  CALL(plugin_has_log_control)();
  sayAndAwait("process " + std::to_string(getpid()) + " is up\n");
}

// Calls a function of the plug-in that writes to the log.
void writeLog() { CALL(is_coba_direct_call_mode)(); }

// A launch with a sanitizer takes several times as long.
const int kLaunches = isSanitized() ? 60 : 200;

// Runs `count` launches, several at a time.
std::vector<Ending> launches(int count, const std::function<void(int)>& body) {
  constexpr int kAtOnce = 16;
  std::vector<Ending> endings;
  for (int first = 0; first < count; first += kAtOnce) {
    std::vector<pid_t> children;
    for (int i = first; i < std::min(count, first + kAtOnce); ++i) {
      children.push_back(start([&] {
        launchPlugin();
        body(i);
      }));
    }
    for (const pid_t child : children) {
      endings.push_back(endOf(child));
    }
    takeLog();  // keeps the log short, because it is searched
  }
  return endings;
}

class PluginCrash : public torture::DeviceTest {
 protected:
  void SetUp() override {
    torture::DeviceTest::SetUp();
    if (!IsSkipped()) {
      std::filesystem::remove(kMarker);
      ASSERT_NE(CALL(plugin_initialize), nullptr);
      takeLog();
    }
  }

  // Runs a launch that ends in `body`.
  static Ending launchAnd(const std::function<void()>& body) {
    return endingOf([&] {
      launchPlugin();
      body();
    });
  }
};

// Matches the message of a crash as an error line.
auto isLogged(const std::string& message) {
  return ContainsRegex("\n6 log.cc: stdErrRedirect[^\n]*" + message);
}

TEST_F(PluginCrash, TerminationEndsQuietlyAndIsLogged) {
  EXPECT_EQ(launchAnd([] { raise(SIGTERM); }), ended(0));
  EXPECT_THAT(takeLog(), isLogged("Sigterm Handler"));
}

TEST_F(PluginCrash, AnAbortOutOfTheBlueIsPassedOn) {
  EXPECT_EQ(launchAnd([] { abort(); }), killed(SIGABRT));
  const std::string log = takeLog();
  EXPECT_THAT(log, isLogged("<<< onSigabrt >>>"));
  EXPECT_THAT(log, Not(HasSubstr("Ignore Coredump")));
}

TEST_F(PluginCrash, AnAbortAfterAManagedExceptionIsQuiet) {
  EXPECT_EQ(launchAnd([] {
              sayAndAwait("Unhandled exception in App.dll\n");
              abort();
            }),
            ended(0));
  EXPECT_THAT(takeLog(), HasSubstr("Ignore Coredump was setted. Terminate normally"));
}

TEST_F(PluginCrash, TheMarkerTurnsDumpsOn) {
  torture::writeFile(kMarker, "");
  EXPECT_EQ(launchAnd([] {
              sayAndAwait("Unhandled exception in App.dll\n");
              abort();
            }),
            killed(SIGABRT));
}

TEST_F(PluginCrash, AMemoryFaultTurnsDumpsOn) {
  for (const char* text : {"double free or corruption (out)\n", "stack smashing detected\n"}) {
    takeLog();
    EXPECT_EQ(launchAnd([text] {
                sayAndAwait("Unhandled exception in App.dll\n");
                sayAndAwait(text);
                abort();
              }),
              killed(SIGABRT))
        << text;
  }
}

TEST_F(PluginCrash, AfterTheEndCrashesAreQuiet) {
  for (const Crash kind : {Crash::kAbort, Crash::kFault}) {
    torture::writeFile(kMarker, "");
    EXPECT_EQ(launchAnd([kind] {
                CALL(plugin_finalize)();
                crash(kind);
              }),
              ended(0));
    EXPECT_THAT(takeLog(), HasSubstr("onSigabrt called while terminate. go to exit"));
  }
}

void abortOnTwoThreads() {
  std::atomic<int> ready{0};
  const auto abortTogether = [&ready] {
    for (++ready; ready < 2;) {
    }
    abort();
  };
  std::thread other(abortTogether);
  abortTogether();
  other.join();
}

// The second abort occurs while the first handler waits for its messages.
TEST_F(PluginCrash, TwoThreadsThatAbortAtOnceEndQuietly) {
  for (const bool atEnd : {false, true}) {
    const auto endings = launches(kLaunches / 2, [atEnd](int) {
      if (atEnd) {
        CALL(plugin_finalize)();
      } else {
        sayAndAwait("App.dll of " + std::to_string(getpid()) + "\n");  // a keyword of this process
      }
      abortOnTwoThreads();
    });
    EXPECT_THAT(endings, Each(ended(0))) << atEnd;
  }
}

TEST_F(PluginCrash, FaultAndTrapArePassedOn) {
  EXPECT_EQ(launchAnd(fault), killed(SIGSEGV));
  EXPECT_EQ(launchAnd([] { raise(SIGTRAP); }), killed(SIGTRAP));
}

TEST_F(PluginCrash, InitializedTwiceEveryCrashIsQuiet) {
  for (const Crash kind : {Crash::kAbort, Crash::kFault, Crash::kTrap}) {
    EXPECT_EQ(launchAnd([kind] {
                CALL(plugin_initialize)("inhouse");
                crash(kind);
              }),
              ended(0));
  }
}

TEST_F(PluginCrash, WithoutCaptureTheRulesHold) {
  const auto without = [](Crash kind) {
    return endingOf([kind] {
      CALL(plugin_initialize)("inhouse");
      crash(kind);
    });
  };
  EXPECT_EQ(without(Crash::kTermination), ended(0));
  EXPECT_EQ(without(Crash::kAbort), killed(SIGABRT));
  EXPECT_EQ(without(Crash::kFault), killed(SIGSEGV));
  EXPECT_EQ(without(Crash::kTrap), killed(SIGTRAP));
}

// Returns how many of `count` aborts did not end as requested by the text that was written
// immediately before. The handler waits for a limited time. If a busy machine does not run the
// reader in that time, the abort is passed on.
int misses(int count) {
  const auto endings = launches(count, [](int) {
    say("Unhandled exception in App.dll\n");
    abort();
  });
  EXPECT_THAT(endings, Each(AnyOf(ended(0), killed(SIGABRT))));
  return static_cast<int>(std::count(endings.begin(), endings.end(), killed(SIGABRT)));
}

TEST_F(PluginCrash, TheRuleKnowsWhatWasWrittenJustBefore) {
  const Precedence precedence;
  EXPECT_LE(misses(kLaunches), kLaunches / 20);
}

TEST_F(PluginCrash, TheRuleKnowsItWhileTheLogIsSlow) {
  const Precedence precedence;
  const SlowLog slow(1000);
  EXPECT_LE(misses(kLaunches / 2), kLaunches / 20);
}

// Writes a line and waits until the reader has taken it, but not until it is logged.
void sayAndAwaitReading(const char* text) {
  say(text);
  for (int unread = 1; unread > 0;) {
    std::this_thread::yield();
    ioctl(STDERR_FILENO, FIONREAD, &unread);
  }
}

// A reader that is ready to run may get no processor for some 100 milliseconds. The abort then
// waits, and its cause is in the log. The reader of standard output has logged its start before, so
// that the other one does not sleep until the log is free.
TEST_F(PluginCrash, TheRuleKnowsItAlthoughTheReaderTakesLong) {
  EXPECT_EQ(launchAnd([] {
              while (!isInLog("stdOutRedirect(")) {
                std::this_thread::yield();
              }
              const SlowLog slow(60'000, SlowLog::Thread::kKeepsRunning);
              sayAndAwaitReading("Process terminated.\n");
              say("in App.dll\n");
              abort();
            }),
            ended(0));
  EXPECT_THAT(takeLog(), HasSubstr("Ignore Coredump was setted. Terminate normally"));
}

TEST_F(PluginCrash, TheMonitorReportsThroughTheLog) {
  EXPECT_EQ(launchAnd([] {
              ::signal(
                  SIGSEGV, +[](int) {});
              CALL(enable_exception_monitor)(10, 3);
              for (int i = 0; i < 3; ++i) {
                raise(SIGSEGV);
              }
              raise(SIGTERM);
            }),
            ended(0));
  const std::string log = takeLog();
  EXPECT_THAT(log, HasSubstr("enable_exception_monitor: 10, 3"));
  EXPECT_THAT(log, HasSubstr("[] Exception Limit exceed!!! (3 / 3)"));
  EXPECT_THAT(log, Not(HasSubstr("(4 / 3)")));
}

std::atomic<int> asked{0};

// The launcher's thread and both readers, then the launcher's thread again.
TEST_F(PluginCrash, BacktracesAreRequestedThroughTheExports) {
  EXPECT_EQ(launchAnd([] {
              ::signal(
                  SIGWINCH, +[](int) { ++asked; });
              const int all = CALL(print_all_backtrace)();
              const int one = CALL(print_backtrace)(gettid());
              while (asked < 4) {
                std::this_thread::yield();
              }
              _exit(all == 0 && one == 0 ? 7 : 8);
            }),
            ended(7));
  EXPECT_THAT(takeLog(), HasSubstr("> \x1b[31mprint_all_backtrace()"));
}

TEST_F(PluginCrash, TheDebuggersExportsDoNothing) {
  EXPECT_EQ(CALL(lldb_sos_get_thread_list)(), 0);
  EXPECT_EQ(CALL(lldb_sos_get_managed_thread_list)(), 0);
  CALL(lldb_sos_disable_smdl)();
  CALL(lldb_sos_enable_smdl)();
  CALL(lldb_sos_dump_manage_only_threads)();
  CALL(lldb_sos_dump_manage_threads)();
  CALL(lldb_sos_dump_manage_threads_with_args)();
  CALL(lldb_sos_dump_manage_threads_by_tid)();
  CALL(lldb_sos_set_timeout_time)();
  EXPECT_EQ(takeLog(), "");
}

// With several crashes, any of them can end the process, but it must end.
const auto isAnEnding = AnyOf(ended(0), killed(SIGSEGV), killed(SIGABRT), killed(SIGTRAP));

class PluginCrashTorture : public PluginCrash {};

// Four threads crash at the same time, each in its own place and way, in every combination.
TEST_F(PluginCrashTorture, CrashesInsideLocksOnSeveralThreadsAlwaysEnd) {
  static constexpr int kThreads = 4;
  constexpr std::array places = {Place::kMalloc, Place::kLogger, Place::kPlain};
  constexpr std::array crashes = {Crash::kFault, Crash::kAbort, Crash::kTrap};
  const auto endings = launches(2 * kLaunches, [&](int i) {
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      const Place place = places[static_cast<std::size_t>(i + thread) % places.size()];
      const Crash kind =
          crashes[static_cast<std::size_t>(i / 3 + thread * (i / 9)) % crashes.size()];
      threads.emplace_back([&ready, place, kind] {
        for (++ready; ready < kThreads;) {
          std::this_thread::yield();
        }
        crashIn(place, kind, writeLog);
      });
    }
    lockMalloc();
    for (std::thread& thread : threads) {
      thread.join();
    }
  });
  EXPECT_THAT(endings, Each(isAnEnding));
}

// A single crash always ends the process in the same way, wherever it happens.
TEST_F(PluginCrashTorture, OneCrashInsideALockEndsLikeAnyOtherCrash) {
  constexpr std::array places = {Place::kMalloc, Place::kLogger};
  constexpr std::array crashes = {Crash::kFault, Crash::kAbort, Crash::kTrap, Crash::kTermination};
  const std::array outcomes = {killed(SIGSEGV), killed(SIGABRT), killed(SIGTRAP), ended(0)};
  const auto endings = launches(kLaunches, [&](int i) {
    lockMalloc();
    crashIn(places[static_cast<std::size_t>(i) % places.size()],
            crashes[static_cast<std::size_t>(i / 2) % crashes.size()], writeLog);
  });
  for (std::size_t i = 0; i < endings.size(); ++i) {
    if (isSanitized() && i % 2 == 0) {
      continue;  // a sanitizer replaces malloc
    }
    EXPECT_EQ(endings[i], outcomes[i / 2 % crashes.size()]) << i;
  }
}

// If a handler took any of these locks, it would wait forever.
TEST_F(PluginCrashTorture, HandlersNeedNoLockOfTheProcess) {
  constexpr std::array crashes = {Crash::kFault, Crash::kAbort, Crash::kTrap, Crash::kTermination};
  const std::array outcomes = {killed(SIGSEGV), killed(SIGABRT), killed(SIGTRAP), ended(0)};
  const auto endings = launches(40, [&](int i) {
    lockMalloc();
    holdEveryLock();
    crash(crashes[static_cast<std::size_t>(i) % crashes.size()]);
  });
  for (std::size_t i = 0; i < endings.size(); ++i) {
    EXPECT_EQ(endings[i], outcomes[i % crashes.size()]) << i;
  }
}

// The pipe is full, and its reader waits for a lock that the crashing thread holds. The text must
// not reach the shared log. It would fill the log, and messages of later launches would be lost.
TEST_F(PluginCrashTorture, AFullPipeBlocksNoHandler) {
  const auto endings = launches(6, [&](int i) {
    std::atomic<bool> readerIsBlocked{false};
    std::thread([&] {
      while (!readerIsBlocked) {
        std::this_thread::yield();
      }
      for (;;) {
        say("more than the pipe can take\n");
      }
    }).detach();
    holdEveryLock();
    readerIsBlocked = true;
    for (pollfd pipe{STDERR_FILENO, POLLOUT, 0}; poll(&pipe, 1, 0) > 0;) {
      std::this_thread::yield();
    }
    crash(i % 2 == 0 ? Crash::kTermination : Crash::kAbort);
  });
  for (std::size_t i = 0; i < endings.size(); ++i) {
    EXPECT_EQ(endings[i], i % 2 == 0 ? ended(0) : killed(SIGABRT)) << i;
  }
}

}  // namespace
}  // namespace quillon::test
