#include "plugin/src/dotnet-exception-monitor/exception_monitor.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>

#include "plugin/src/dotnet-signal-handler/signal_handler.h"
#include "plugin/src/plugin-util/app_identity.h"
#include "plugin/src/plugin-util/launch_boost.h"
#include "plugin/src/plugin-util/published_app_id.h"
#include "quillon_tv_plugin.h"
#include "tests/support/recording_platform.h"
#include "tests/system/crash/child.h"
#include "tests/system/crash/scripted_signals.h"
#include "util/log/stream_capture.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

const std::string kSeen = "onSigsegvForException!!\n";
const std::string kReport = "[org.example.app] Exception Limit exceed!!! ";
constexpr std::time_t kStart = 1'000'000;

// A handler that recovers from faults, like the runtime's.
int handled = 0;
siginfo_t* lastInfo = nullptr;
void* lastContext = nullptr;

void handler(int) { ++handled; }

void handlerWithInfo(int, siginfo_t* info, void* context) {
  ++handled;
  lastInfo = info;
  lastContext = context;
}

// Raises faults that do no harm: `handler` is installed below the monitor, and the test reads the
// pipe.
class ExceptionMonitor : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    ASSERT_EQ(pipe2(pipe_.data(), O_NONBLOCK | O_CLOEXEC), 0);
    pStdErr[1] = pipe_[1];
    signals() = {};
    signals().now = kStart;
    g_appID = "org.example.app";
    exception_count = 0;
    sig_segv_for_exception_old = {};
    handled = 0;
    ::signal(SIGSEGV, handler);
  }
  void TearDown() override {
    g_appID.clear();
    signals() = {};
    pStdErr[1] = -1;
    close(pipe_[0]);
    close(pipe_[1]);
  }

  // Raises a fault and returns the messages that it causes.
  std::string faultNow() const {
    raise(SIGSEGV);
    std::array<char, 1000> buffer{};
    const ssize_t count = read(pipe_[0], buffer.data(), buffer.size());
    return {buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
  }

  std::array<int, 2> pipe_{};
  KeptActions kept_;
};

TEST_F(ExceptionMonitor, SaysItsLimitsAndInstallsItself) {
  enable_exception_monitor(10, 3);
  EXPECT_THAT(platform().lines(),
              ElementsAre("4 enable_exception_monitor: 10, 3", "4 register signal success!!!"));
  EXPECT_EQ(platform().log[1].file(), "dotnet-exception-monitor.cc");
  EXPECT_EQ(platform().log[1].colour(), "\x1b[36m");
  EXPECT_THAT(platform().trace, Contains(HasSubstr("void enable_exception_monitor(")));
  EXPECT_EQ(exception_limit_for_sec, 10);
  EXPECT_EQ(exception_limit_count, 3);
  EXPECT_EQ(last_exception_time, kStart);
  EXPECT_EQ(sig_segv_for_exception_new.sa_flags, SA_SIGINFO | SA_ONSTACK | SA_RESTART);
  EXPECT_EQ(actionOf(SIGSEGV).sa_sigaction, sig_segv_for_exception_new.sa_sigaction);
  EXPECT_EQ(sigismember(&sig_segv_for_exception_new.sa_mask, SIGABRT), 0);
  EXPECT_EQ(sig_segv_for_exception_old.sa_handler, handler);
}

// Other code of the plug-in may have changed the action.
TEST_F(ExceptionMonitor, InstallsItselfWithAnEmptyMask) {
  sigfillset(&sig_segv_for_exception_new.sa_mask);
  enable_exception_monitor(10, 3);
  const struct sigaction action = actionOf(SIGSEGV);
  EXPECT_EQ(sigismember(&action.sa_mask, SIGTERM), 0);
}

TEST_F(ExceptionMonitor, AFaultWhileItIsInstalledFindsThePreviousHandler) {
  signals().onInstall = [] { raise(SIGSEGV); };
  enable_exception_monitor(10, 3);
  EXPECT_EQ(handled, 1);
}

TEST_F(ExceptionMonitor, AHandlerOfAnotherThreadMeanwhileIsThePreviousOne) {
  const auto other = [](int) { handled += 10; };
  signals().beforeInstall = [&] { ::signal(SIGSEGV, other); };
  enable_exception_monitor(10, 3);
  EXPECT_EQ(faultNow(), kSeen);
  EXPECT_EQ(handled, 10);
}

TEST_F(ExceptionMonitor, ThePreviousHandlerFindsErrnoAsTheFaultLeftIt) {
  static int seen = 0;
  ::signal(
      SIGSEGV, +[](int) { seen = errno; });
  enable_exception_monitor(10, 3);
  pStdErr[1] = -1;  // the message cannot be written
  errno = EDOM;
  raise(SIGSEGV);
  EXPECT_EQ(seen, EDOM);
}

TEST_F(ExceptionMonitor, ThePreviousHandlerIsKnownAlthoughItCannotBeAskedFor) {
  sig_segv_for_exception_old = {};
  signals().isUnknown = true;
  enable_exception_monitor(10, 3);
  EXPECT_EQ(sig_segv_for_exception_old.sa_handler, handler);
}

TEST_F(ExceptionMonitor, AFailureIsNoError) {
  signals().failing = {SIGSEGV};
  enable_exception_monitor(-1, 0);
  EXPECT_THAT(platform().lines(),
              ElementsAre("4 enable_exception_monitor: -1, 0", "4 register signal error!!!"));
  EXPECT_EQ(platform().log[2].colour(), "\x1b[36m");
  EXPECT_EQ(actionOf(SIGSEGV).sa_handler, handler);
}

TEST_F(ExceptionMonitor, ReportsFromTheLimitOnWithinOnePeriod) {
  enable_exception_monitor(10, 3);
  EXPECT_EQ(faultNow(), kSeen);
  signals().now = kStart + 5;
  EXPECT_EQ(faultNow(), kSeen);
  signals().now = kStart + 10;  // exactly the length of the period
  EXPECT_EQ(faultNow(), kSeen + kReport + "(3 / 3)\n");
  EXPECT_EQ(faultNow(), kSeen + kReport + "(4 / 3)\n");
  EXPECT_EQ(handled, 4);
}

TEST_F(ExceptionMonitor, ALaterFaultBeginsAPeriodWithoutAReport) {
  enable_exception_monitor(10, 1);
  EXPECT_EQ(faultNow(), kSeen + kReport + "(1 / 1)\n");
  EXPECT_EQ(faultNow(), kSeen + kReport + "(2 / 1)\n");
  signals().now = kStart + 11;
  EXPECT_EQ(faultNow(), kSeen);
  EXPECT_EQ(exception_count, 1);
  EXPECT_EQ(last_exception_time, kStart + 11);
  signals().now = kStart + 21;
  EXPECT_EQ(faultNow(), kSeen + kReport + "(2 / 1)\n");
  EXPECT_EQ(last_exception_time, kStart + 11);
}

TEST_F(ExceptionMonitor, EnabledAgainItKeepsTheCountAndBeginsAPeriod) {
  enable_exception_monitor(10, 3);
  faultNow();
  faultNow();
  signals().now = kStart + 100;
  enable_exception_monitor(10, 3);
  EXPECT_EQ(faultNow(), kSeen + kReport + "(3 / 3)\n");
}

// If the monitor is already installed, it keeps the handler that it replaced first.
TEST_F(ExceptionMonitor, EnabledAgainItNeverCallsItself) {
  enable_exception_monitor(10, 100);
  enable_exception_monitor(10, 100);
  EXPECT_EQ(sig_segv_for_exception_old.sa_handler, handler);
  EXPECT_EQ(faultNow(), kSeen);
  EXPECT_EQ(handled, 1);
}

TEST_F(ExceptionMonitor, EnabledAgainOverAnotherHandlerItTakesThatOne) {
  enable_exception_monitor(10, 100);
  const auto other = [](int) { handled += 10; };
  ::signal(SIGSEGV, other);
  enable_exception_monitor(10, 100);
  EXPECT_EQ(faultNow(), kSeen);
  EXPECT_EQ(handled, 10);
}

TEST_F(ExceptionMonitor, LimitsAreShownAsTheyAre) {
  enable_exception_monitor(10, 0);
  EXPECT_EQ(faultNow(), kSeen + kReport + "(1 / 0)\n");
  enable_exception_monitor(10, -30);
  EXPECT_EQ(faultNow(), kSeen + kReport + "(2 / -30)\n");
  enable_exception_monitor(10, INT_MIN);
  EXPECT_EQ(faultNow(), kSeen + kReport + "(3 / -2147483648)\n");
  exception_count = -1;
  EXPECT_EQ(faultNow(), kSeen + kReport + "(0 / -2147483648)\n");
  exception_count = INT_MAX - 1;
  enable_exception_monitor(10, 10);
  EXPECT_EQ(faultNow(), kSeen + kReport + "(2147483647 / 10)\n");
}

TEST_F(ExceptionMonitor, ANegativePeriodIsAlwaysOver) {
  enable_exception_monitor(-1, 1);
  EXPECT_EQ(faultNow(), kSeen);
  EXPECT_EQ(faultNow(), kSeen);
}

TEST_F(ExceptionMonitor, ALongReportIsCut) {
  const std::string id(64, 'i');
  g_appID = id;
  enable_exception_monitor(10, 1);
  const std::string whole = "[" + id + "] Exception Limit exceed!!! (1 / 1";
  ASSERT_EQ(whole.size(), 99U);
  EXPECT_EQ(faultNow(), kSeen + whole);
  g_appID = std::string(5000, 'i');
  EXPECT_EQ(faultNow(), kSeen + "[" + std::string(98, 'i'));
}

TEST_F(ExceptionMonitor, ReportsTheIdOfTheFault) {
  KestrelConnectionTryCnt = 0;  // no notice
  _SetAppInfo("org.example.first", "/usr/bin/env");
  g_appID = "org.example.second";
  enable_exception_monitor(10, 1);
  EXPECT_EQ(faultNow(), kSeen + "[org.example.second] Exception Limit exceed!!! (1 / 1)\n");
}

// A fault during the assignment of g_appID.
TEST_F(ExceptionMonitor, ReportsAPublishedIdInsteadOfTheAssignedOne) {
  publishAppId("org.example.published");
  enable_exception_monitor(10, 1);
  EXPECT_EQ(faultNow(), kSeen + "[org.example.published] Exception Limit exceed!!! (1 / 1)\n");
  withdrawAppId();
}

TEST_F(ExceptionMonitor, PassesOnWhatItGot) {
  struct sigaction real = {};
  real.sa_sigaction = handlerWithInfo;
  real.sa_flags = SA_SIGINFO;
  sigaction(SIGSEGV, &real, nullptr);
  enable_exception_monitor(10, 100);
  siginfo_t info{};
  int context = 0;
  sig_segv_for_exception_new.sa_sigaction(SIGSEGV, &info, &context);
  EXPECT_EQ(handled, 1);
  EXPECT_EQ(lastInfo, &info);
  EXPECT_EQ(lastContext, &context);
}

TEST_F(ExceptionMonitor, RunsBeforeTheCrashHandler) {
  const Ending ending = endingWithPipe([] {
    ::signal(SIGSEGV, SIG_DFL);
    registerSignalHandler();
    enable_exception_monitor(10, 1);
    fault();
  });
  EXPECT_EQ(ending, killed(SIGSEGV, kSeen + kReport + "(1 / 1)\n"));
}

// A cycle: the previous action of the crash handler is the monitor, and vice versa.
TEST_F(ExceptionMonitor, OnBothSidesOfTheCrashHandlerItStillEnds) {
  const Ending ending = endingWithPipe([] {
    enable_exception_monitor(10, 100);
    registerSignalHandler();
    enable_exception_monitor(10, 100);
    fault();
  });
  EXPECT_EQ(ending, ended(0, kSeen + kSeen));
}

// The monitor needs a real handler below it. Without one, the call of the previous action ends the
// process.
TEST_F(ExceptionMonitor, WithoutAHandlerTheFaultEndsTheProcess) {
  for (const auto action : {SIG_DFL, SIG_IGN}) {
    const Ending ending = endingWithPipe([action] {
      ::signal(SIGSEGV, action);
      enable_exception_monitor(10, 100);
      fault();
    });
    EXPECT_EQ(ending, killed(SIGSEGV, kSeen));
  }
}

// The same if the runtime calls the monitor as a function, with the signal unblocked: each call
// faults again, until the stack overflows.
TEST_F(ExceptionMonitor, WithoutAHandlerUnderTheRuntimeItEndsToo) {
  const Ending ending = endingWithPipe([] {
    ::signal(SIGSEGV, SIG_DFL);
    enable_exception_monitor(10, 1'000'000);
    struct sigaction runtime = {};
    runtime.sa_flags = SA_NODEFER | SA_SIGINFO;
    runtime.sa_sigaction = [](int signal, siginfo_t* info, void* context) {
      sig_segv_for_exception_new.sa_sigaction(signal, info, context);
      _exit(9);
    };
    sigaction(SIGSEGV, &runtime, nullptr);
    fault();
  });
  EXPECT_EQ(ending.signal, SIGSEGV) << ending.exitStatus;
}

}  // namespace
}  // namespace quillon::test
