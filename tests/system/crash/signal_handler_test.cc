#include "plugin/src/dotnet-signal-handler/signal_handler.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <climits>

#include "platform/dlog.h"
#include "plugin/src/dotnet-signal-handler/decimal_text.h"
#include "quillon_tv_plugin.h"
#include "tests/system/crash/child.h"
#include "tests/system/crash/scripted_signals.h"
#include "tests/system/strategies/device_test.h"
#include "util/log/crash_keywords.h"
#include "util/log/stream_capture.h"

namespace quillon::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kMarker[] = "/tmp/dotnet_dont_create_dump";
constexpr char kSuppressed[] = "<<< onSigabrt >>>Ignore Coredump was setted. Terminate normally";
constexpr char kAtEnd[] = "onSigabrt called while terminate. go to exit";

class SignalHandler : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (!IsSkipped()) {
      std::filesystem::remove(kMarker);
      signals() = {};
      signals().records = true;
    }
  }
  void TearDown() override { signals() = {}; }

  KeptActions kept_;
};

// The previous handler in some tests. Its exit status shows that it ran.
void previous(int signal) { _exit(100 + signal); }

// Installs a handler before the plug-in does, like a runtime or a sanitizer.
void installPrevious() {
  for (const int signal : {SIGABRT, SIGSEGV, SIGTRAP}) {
    ::signal(signal, previous);
  }
}

TEST_F(SignalHandler, InstallsPlainActionsInOrder) {
  EXPECT_EQ(registerSignalHandler(), 0);
  EXPECT_THAT(signals().installed, ElementsAre(SIGABRT, SIGSEGV, SIGTRAP));
  for (const int signal : {SIGABRT, SIGSEGV, SIGTRAP}) {
    const struct sigaction action = actionOf(signal);
    EXPECT_EQ(action.sa_flags & (SA_SIGINFO | SA_NODEFER | SA_ONSTACK | SA_RESTART), 0) << signal;
    EXPECT_EQ(sigismember(&action.sa_mask, SIGTERM), 0) << signal;
    EXPECT_NE(action.sa_handler, SIG_DFL) << signal;
  }
  for (const struct sigaction* const action : {&sig_abrt_new, &sig_segv_new, &sig_trap_new}) {
    EXPECT_EQ(action->sa_flags, 0);
  }
  EXPECT_NE(actionOf(SIGTERM).sa_handler, SIG_DFL);
  EXPECT_THAT(platform().lines(), ElementsAre("3 Register signal handler"));
  EXPECT_EQ(platform().log[0].file(), "dotnet-signal-handler.cc");
}

// Other code of the plug-in may have changed the actions.
TEST_F(SignalHandler, InstallsPlainActionsWhateverTheyWereBefore) {
  for (struct sigaction* const action : {&sig_abrt_new, &sig_segv_new, &sig_trap_new}) {
    sigfillset(&action->sa_mask);
    action->sa_flags = SA_RESTART;
  }
  EXPECT_EQ(registerSignalHandler(), 0);
  for (const int signal : {SIGABRT, SIGSEGV, SIGTRAP}) {
    const struct sigaction action = actionOf(signal);
    EXPECT_EQ(sigismember(&action.sa_mask, SIGTERM), 0) << signal;
    EXPECT_EQ(action.sa_flags & SA_RESTART, 0) << signal;
  }
}

TEST_F(SignalHandler, EachCallSavesWhatIsInForce) {
  installPrevious();
  registerSignalHandler();
  EXPECT_EQ(sig_abrt_old.sa_handler, previous);
  EXPECT_EQ(sig_segv_old.sa_handler, previous);
  EXPECT_EQ(sig_trap_old.sa_handler, previous);
  registerSignalHandler();
  EXPECT_EQ(sig_abrt_old.sa_handler, sig_abrt_new.sa_handler);
  EXPECT_EQ(sig_segv_old.sa_handler, sig_segv_new.sa_handler);
  EXPECT_EQ(sig_trap_old.sa_handler, sig_trap_new.sa_handler);
}

TEST_F(SignalHandler, OneFailureStopsNoOther) {
  signals().failing = {SIGABRT};
  EXPECT_EQ(registerSignalHandler(), 0);
  EXPECT_THAT(signals().installed, ElementsAre(SIGSEGV, SIGTRAP));
  EXPECT_THAT(platform().messages(DLOG_ERROR),
              ElementsAre("Fail to sigaction(SIGABRT, &sig_abrt_new, &sig_abrt_old)"));
}

TEST_F(SignalHandler, TheResultIsThatOfTheLast) {
  signals().failing = {SIGABRT, SIGSEGV, SIGTRAP};
  EXPECT_EQ(registerSignalHandler(), -1);
  EXPECT_THAT(platform().messages(DLOG_ERROR),
              ElementsAre("Fail to sigaction(SIGABRT, &sig_abrt_new, &sig_abrt_old)",
                          "Fail to sigaction(SIGSEGV, &sig_segv_new, &sig_segv_old)",
                          "Fail to sigaction(SIGTRAP, &sig_trap_new, &sig_trap_old)"));
  EXPECT_THAT(signals().installed, IsEmpty());
}

TEST_F(SignalHandler, TerminationEndsQuietly) {
  const Ending ending = endingWithPipe([] {
    registerSignalHandler();
    raise(SIGTERM);
  });
  EXPECT_EQ(ending, ended(0, "Sigterm Handler"));
}

// Every combination of the three conditions: an abort ends quietly in exactly one of them.
TEST_F(SignalHandler, TheFlagsDecideHowAnAbortEnds) {
  for (int i = 0; i < 8; ++i) {
    const bool managed = (i & 1) != 0;
    const bool memory = (i & 2) != 0;
    const bool marker = (i & 4) != 0;
    if (marker) {
      makeFile(kMarker);
    }
    const Ending ending = endingWithPipe([&] {
      registerSignalHandler();
      managedExceptionOccurred = managed;
      memoryIssueOccurred = memory;
      abort();
    });
    EXPECT_EQ(ending, managed && !memory && !marker ? ended(0, kSuppressed)
                                                    : killed(SIGABRT, "<<< onSigabrt >>>"))
        << "managed " << managed << ", memory " << memory << ", marker " << marker;
  }
}

// Any existing file is a marker, whatever its type. A link without a target does not count as a
// file.
TEST_F(SignalHandler, AFolderIsAMarkerAndALinkToNothingIsNot) {
  const auto abortAfterException = [] {
    registerSignalHandler();
    managedExceptionOccurred = true;
    abort();
  };
  std::filesystem::create_directory(kMarker);
  EXPECT_EQ(endingWithPipe(abortAfterException), killed(SIGABRT, "<<< onSigabrt >>>"));
  std::filesystem::remove(kMarker);
  std::filesystem::create_symlink("/nothing", kMarker);
  EXPECT_EQ(endingWithPipe(abortAfterException), ended(0, kSuppressed));
}

TEST_F(SignalHandler, AnAbortWhileTheProcessEndsIsQuietForAllFlags) {
  makeFile(kMarker);
  for (const bool second : {false, true}) {
    const Ending ending = endingWithPipe([second] {
      registerSignalHandler();
      checkOnTerminate = true;
      checkOnSigabrt = second;
      managedExceptionOccurred = true;
      memoryIssueOccurred = true;
      abort();
    });
    EXPECT_EQ(ending, ended(0, std::string("<<< onSigabrt >>>") + kAtEnd)) << second;
  }
}

TEST_F(SignalHandler, ASecondAbortEndsQuietlyBeforeTheRule) {
  const Ending ending = endingWithPipe([] {
    registerSignalHandler();
    checkOnSigabrt = true;
    managedExceptionOccurred = true;
    abort();
  });
  EXPECT_EQ(ending, ended(0, "<<< onSigabrt >>><<< checkOnSigabrt >>>"));
}

TEST_F(SignalHandler, ThePreviousActionTakesOver) {
  for (const int signal : {SIGABRT, SIGSEGV, SIGTRAP}) {
    const Ending ending = endingWithPipe([signal] {
      installPrevious();
      registerSignalHandler();
      raise(signal);
    });
    EXPECT_EQ(ending, ended(100 + signal, signal == SIGABRT ? "<<< onSigabrt >>>" : "")) << signal;
  }
}

// An abort that was ignored before is ignored again. Only the flag is set, so that the next abort
// would count as the second one.
TEST_F(SignalHandler, AnIgnoredAbortIsIgnoredAgain) {
  const Ending ending = endingWithPipe([] {
    ::signal(SIGABRT, SIG_IGN);
    registerSignalHandler();
    raise(SIGABRT);
    _exit(checkOnSigabrt && actionOf(SIGABRT).sa_handler == SIG_IGN ? 5 : 6);
  });
  EXPECT_EQ(ending, ended(5, "<<< onSigabrt >>>"));
}

TEST_F(SignalHandler, TheFirstFaultIsPassedOn) {
  EXPECT_EQ(endingWithPipe([] {
              registerSignalHandler();
              fault();
            }),
            killed(SIGSEGV));
}

TEST_F(SignalHandler, TheFirstFaultWhileTheProcessEndsIsQuiet) {
  EXPECT_EQ(endingWithPipe([] {
              registerSignalHandler();
              checkOnTerminate = true;
              fault();
            }),
            ended(0, kAtEnd));
}

TEST_F(SignalHandler, ALaterFaultEndsWithoutAWord) {
  for (const bool atEnd : {false, true}) {
    const Ending ending = endingWithPipe([atEnd] {
      registerSignalHandler();
      bFirstSigSegv = false;
      checkOnTerminate = atEnd;
      fault();
    });
    EXPECT_EQ(ending, ended(0)) << atEnd;
  }
}

TEST_F(SignalHandler, TheFirstTrapIsPassedOnAtTheEndToo) {
  for (const bool atEnd : {false, true}) {
    const Ending ending = endingWithPipe([atEnd] {
      registerSignalHandler();
      checkOnTerminate = atEnd;
      raise(SIGTRAP);
    });
    EXPECT_EQ(ending, killed(SIGTRAP)) << atEnd;
  }
}

TEST_F(SignalHandler, ALaterTrapEndsWithoutAWord) {
  EXPECT_EQ(endingWithPipe([] {
              registerSignalHandler();
              bFirstSigTrap = false;
              raise(SIGTRAP);
            }),
            ended(0));
}

// The handlers have saved themselves as the previous actions, so they receive the signals that they
// raise again.
TEST_F(SignalHandler, RegisteredTwiceEveryCrashEndsQuietly) {
  const auto twice = [](void (*crash)()) {
    return endingWithPipe([crash] {
      registerSignalHandler();
      registerSignalHandler();
      crash();
    });
  };
  EXPECT_EQ(twice([] { abort(); }),
            ended(0, "<<< onSigabrt >>><<< onSigabrt >>><<< checkOnSigabrt >>>"));
  EXPECT_EQ(twice(fault), ended(0));
  EXPECT_EQ(twice([] { raise(SIGTRAP); }), ended(0));
}

// The runtime calls the handler that it found at its start as a function, with the signal
// unblocked, for a fault that is not in managed code.
TEST_F(SignalHandler, CalledAsAFunctionItPassesTheFaultOnAtOnce) {
  const Ending ending = endingWithPipe([] {
    registerSignalHandler();
    struct sigaction runtime = {};
    runtime.sa_flags = SA_NODEFER;
    runtime.sa_handler = [](int signal) {
      sig_segv_new.sa_handler(signal);
      _exit(9);
    };
    sigaction(SIGSEGV, &runtime, nullptr);
    fault();
  });
  EXPECT_EQ(ending, killed(SIGSEGV));
}

TEST_F(SignalHandler, WithoutAPipeTheHandlersStillAct) {
  const auto without = [](void (*crash)()) {
    return endingOf([crash] {
      registerSignalHandler();
      crash();
    });
  };
  ASSERT_EQ(pStdErr[1], -1);
  EXPECT_EQ(without([] { raise(SIGTERM); }), ended(0));
  EXPECT_EQ(without([] { abort(); }), killed(SIGABRT));
  EXPECT_EQ(without(fault), killed(SIGSEGV));
  EXPECT_EQ(without([] {
              managedExceptionOccurred = true;
              abort();
            }),
            ended(0));
  EXPECT_EQ(without([] {
              checkOnTerminate = true;
              fault();
            }),
            ended(0));
}

TEST(ItoaForSignalHandler, WritesDigits) {
  const auto textOf = [](int value) {
    char around[kDecimalTextSize + 2];
    std::fill(std::begin(around), std::end(around), '#');
    char* const out = around + 1;
    const int digits = itoaForSignalHandler(value, out);
    EXPECT_EQ(around[0], '#') << value;
    EXPECT_EQ(out[digits], '\0') << value;
    EXPECT_EQ(out[digits + 1], '#') << value;
    EXPECT_EQ(std::string(out).size(), static_cast<std::size_t>(digits)) << value;
    return std::string(out);
  };
  EXPECT_EQ(textOf(1), "1");
  EXPECT_EQ(textOf(9), "9");
  EXPECT_EQ(textOf(10), "10");
  EXPECT_EQ(textOf(100200), "100200");
  EXPECT_EQ(textOf(INT_MAX), "2147483647");
  EXPECT_EQ(textOf(0), "");
  EXPECT_EQ(textOf(-7), "");
  EXPECT_EQ(textOf(INT_MIN), "");
}

}  // namespace
}  // namespace quillon::test
