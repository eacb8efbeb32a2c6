// What an application does after its Main has returned, and how it ends: with plain dotnet, in a
// direct launch and in prepared ones.
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <string>
#include <vector>

#include "tests/support/program.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

using ::testing::EndsWith;

using Words = std::vector<std::string>;

constexpr char kEnding[] = "org.velora.sample.ending";
constexpr char kQuillon[] = QUILLON_BUILD_DIRECTORY "/bin/quillon";

Words operator+(Words one, const Words& more) {
  one.insert(one.end(), more.begin(), more.end());
  return one;
}

class LifetimeTest : public LaunchpadTest {
 protected:
  void SetUp() override {
    LaunchpadTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    const rlimit noCore{0, RLIM_INFINITY};
    setrlimit(RLIMIT_CORE, &noCore);
    allowOwnProcesses();
    allowNoRefill();
    start(1);
    prepareFor({"--raw", kEnding});
  }

  // The result of a command that gets SIGTERM once it prints "waiting", if `terminated`.
  static Finished resultOf(const Words& command, bool terminated) {
    Program program(command);
    program.with("QUILLON_LOG", "none");
    const std::string options = kRuntimeSanitizerOptions;
    program.with(options.substr(0, options.find('=')), options.substr(options.find('=') + 1));
    program.start();
    if (terminated && program.waitForOutput("waiting")) {
      program.terminate();
    }
    return program.finish();
  }

  // Expects the same from plain dotnet, a direct launch, and prepared ones by an own and by a
  // shared process. Returns it.
  Finished expectSame(const Words& actions, bool terminated = false) const {
    const Finished plain =
        resultOf(dotnetCommand(sampleAssembly(kEnding, "SampleEnding.dll"), actions), terminated);
    for (const char* way : {"--direct", "--verbose", "--verbose"}) {
      const Words launch = {kQuillon, "launch", "--device", root(), "--raw", way, kEnding, "--"};
      const Finished launched = resultOf(launch + actions, terminated);
      EXPECT_EQ(launched.status, plain.status) << way;
      EXPECT_EQ(launched.out, plain.out) << way;
      EXPECT_THAT(launched.err, EndsWith(plain.err)) << way;
    }
    EXPECT_EQ(served(), 2);
    EXPECT_EQ(servedByOwnProcesses(), 1);
    return plain;
  }
};

struct Lifetime {
  const char* name;
  Words actions;  // of the sample application
  const char* printed;
};

void PrintTo(const Lifetime& lifetime, std::ostream* out) { *out << lifetime.name; }

class Lifetimes : public LifetimeTest, public ::testing::WithParamInterface<Lifetime> {};

TEST_P(Lifetimes, AreThoseOfPlainDotnet) {
  EXPECT_EQ(expectSame(GetParam().actions).out, GetParam().printed);
}

INSTANTIATE_TEST_SUITE_P(
    All, Lifetimes,
    ::testing::Values(
        Lifetime{"ForegroundThread", {"late", "late"}, "late\n"},
        Lifetime{"SeveralForegroundThreads", {"late", "one", "late", "one"}, "one\none\n"},
        Lifetime{"ForegroundThreadAfterAnExitStatus", {"late", "late", "end", "3"}, "late\n"},
        Lifetime{"ExitOnAnotherThread", {"late-end", "5"}, ""},
        Lifetime{"ExitOnAnotherThreadWhileMainRuns", {"late-end", "5", "wait"}, "waiting\n"},
        Lifetime{"ExceptionOnAnotherThread", {"late-throw", "late words"}, ""},
        Lifetime{"BackgroundThread", {"background", "end", "2"}, ""},
        Lifetime{"AsynchronousMain", {"await", "late", "end", "4"}, "late\n"},
        Lifetime{"ExitHandler", {"on-exit", "bye", "late", "late"}, "late\nbye\n"},
        Lifetime{"ExitHandlerAfterAnExit", {"on-exit", "bye", "late-end", "5"}, "bye\n"},
        Lifetime{"UnhandledExceptionHandler", {"on-unhandled", "seen", "throw", "words"}, "seen\n"},
        Lifetime{"UnhandledExceptionHandlerOfAnotherThread",
                 {"on-unhandled", "seen", "late-throw", "words"},
                 "seen\n"},
        Lifetime{"NoFinalizersAtTheEnd", {"finalize", "finalized", "end", "0"}, ""}),
    [](const auto& lifetime) { return std::string(lifetime.param.name); });

TEST_F(LifetimeTest, AHostStopsAtSigterm) {
  const Finished plain = expectSame({"on-exit", "bye", "host"}, true);
  EXPECT_EQ(plain.status, 0);
  EXPECT_THAT(plain.out, EndsWith("stopped\nbye\n"));
}

TEST_F(LifetimeTest, AnApplicationExitsAtSigterm) {
  const Finished plain = expectSame({"on-exit", "bye", "handle-term", "wait"}, true);
  EXPECT_EQ(plain.status, 6);
  EXPECT_EQ(plain.out, "waiting\nbye\n");
}

}  // namespace
}  // namespace quillon::test
