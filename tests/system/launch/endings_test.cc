// How applications end on the real runtime: the wait status, and the rule of the plug-in that
// applied, which the log messages of its signal handlers show. docs/crashes.md has the same as a
// table.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>

#include <algorithm>

#include "quillon/dotnet/runtime_lookup.h"
#include "tests/support/precedence.h"
#include "tests/support/skip.h"
#include "tests/system/launch/sample_device.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

using Words = std::vector<std::string>;

constexpr char kEnding[] = "org.velora.sample.ending";
constexpr char kQuillon[] = QUILLON_BUILD_DIRECTORY "/bin/quillon";
constexpr char kDumpMarker[] = "/tmp/dotnet_dont_create_dump";

constexpr char kAbort[] = "<<< onSigabrt >>>";
constexpr char kSecondAbort[] = "<<< checkOnSigabrt >>>";
constexpr char kQuiet[] = "Ignore Coredump was setted. Terminate normally";
constexpr char kAtEnd[] = "onSigabrt called while terminate. go to exit";
constexpr char kTerm[] = "Sigterm Handler";

constexpr int kAborted = 128 + SIGABRT;
constexpr int kFaulted = 128 + SIGSEGV;

// The result of one launch.
struct Outcome {
  int status;
  Words messages;  // of the signal handlers, in order
};

class Endings : public RuntimeTest {
 protected:
  void SetUp() override {
    RuntimeTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    const rlimit noCore{0, RLIM_INFINITY};
    setrlimit(RLIMIT_CORE, &noCore);
    makeEndingDevice();
  }

  // Runs the sample application with `actions` to its end.
  Outcome end(const Words& actions) {
    Words command = {kEnding, "--"};
    command.insert(command.end(), actions.begin(), actions.end());
    fs::remove(logFile());
    const CommandResult result =
        launchCaptured(command, {"QUILLON_LOG=json:" + logFile().string()});
    return {result.status, messages()};
  }

  Outcome terminate(const Words& actions) {
    fs::remove(logFile());
    write(logFile(), "");
    Words command = {
        "sh",    "-c", kTerminateOnceItWaits, logFile(), kQuillon, "launch", "--device", root(),
        kEnding, "--"};
    command.insert(command.end(), actions.begin(), actions.end());
    const CommandResult result = run(command, {"QUILLON_LOG=json:" + logFile().string()});
    return {result.status, messages()};
  }

  void expectBoth(const Words& actions, int status, const Words& expected) {
    expectOutcome("without the marker", end(actions), status, expected);
    write(at(kDumpMarker), "");
    expectOutcome("with the marker", end(actions), status, expected);
  }

  // The same for an application that waits for SIGTERM.
  void expectBothTerminated(const Words& actions, int status, const Words& expected) {
    expectOutcome("without the marker", terminate(actions), status, expected);
    write(at(kDumpMarker), "");
    expectOutcome("with the marker", terminate(actions), status, expected);
  }

  // Expects an abort that ends the process quietly, but only without the marker.
  void expectQuietWithoutMarker(const Words& actions) {
    expectOutcome("without the marker", end(actions), 0, {kAbort, kQuiet});
    write(at(kDumpMarker), "");
    expectOutcome("with the marker", end(actions), kAborted, {kAbort});
  }

  std::string log() const { return contentOf(logFile()); }

 private:
  static constexpr char kTerminateOnceItWaits[] =
      R"("$@" & for turn in $(seq 1000); do grep -q waiting "$0" && break; sleep 0.02; done
         kill -TERM $!; wait $!)";

  void makeEndingDevice() {
    const CommandResult made = run({kQuillon, "device", "init", root()});
    ASSERT_EQ(made.status, 0) << made.err;
    const CommandResult installed =
        run({kQuillon, "package", "install", "--device", root(),
             std::string(QUILLON_BUILD_DIRECTORY "/managed/packages/") + kEnding + ".toml"});
    ASSERT_EQ(installed.status, 0) << installed.err;
  }

  fs::path logFile() const { return fresh("log"); }

  // Searches the whole text: a line may also contain other output of the same stream.
  Words messages() const {
    const std::string text = log();
    std::vector<std::pair<size_t, std::string>> found;
    for (const char* message : {kAbort, kSecondAbort, kQuiet, kAtEnd, kTerm}) {
      for (size_t at = text.find(message); at != std::string::npos;
           at = text.find(message, at + 1)) {
        found.emplace_back(at, message);
      }
    }
    std::sort(found.begin(), found.end());
    Words result;
    for (auto& [at, message] : found) {
      result.push_back(message);
    }
    return result;
  }

  void expectOutcome(const char* circumstance, const Outcome& outcome, int status,
                     const Words& expected) const {
    EXPECT_EQ(outcome.status, status) << circumstance << "\n" << log();
    EXPECT_THAT(outcome.messages, ElementsAreArray(expected)) << circumstance << "\n" << log();
  }

  Precedence precedence_;
};

TEST_F(Endings, AnUncaughtExceptionIsAnAbortWithADump) {
  expectBoth({"throw", "plain words"}, kAborted, {kAbort});
}

TEST_F(Endings, AnUncaughtExceptionWithAKeywordInItsTextEndsQuietly) {
  expectQuietWithoutMarker({"throw", "no Velora here"});
}

TEST_F(Endings, TheTerminalShowsTheCauseOfAQuietEnd) {
  const CommandResult result = launchCaptured({kEnding, "--", "throw", "no Velora here"}, {});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, HasSubstr("System.InvalidOperationException: no Velora here"));
  EXPECT_THAT(result.err, HasSubstr(kQuiet));
}

TEST_F(Endings, WithoutCaptureNoExceptionEndsQuietly) {
  const CommandResult result =
      launch({kEnding, "--", "throw", "no Velora here"}, {"QUILLON_LOG=none"});
  EXPECT_EQ(result.status, kAborted);
  EXPECT_THAT(result.err, HasSubstr("System.InvalidOperationException: no Velora here"));
}

TEST_F(Endings, FailFastIsAnAbortWithADump) {
  expectBoth({"fail-fast", "plain words"}, kAborted, {kAbort});
}

TEST_F(Endings, FailFastWithAKeywordInItsTextEndsQuietly) {
  expectQuietWithoutMarker({"fail-fast", "missing.dll"});
}

TEST_F(Endings, AStackOverflowIsAnAbortWithADump) { expectBoth({"overflow"}, kAborted, {kAbort}); }

TEST_F(Endings, AStackOverflowAfterAKeywordEndsQuietly) {
  expectQuietWithoutMarker({"say", "loaded some.dll", "overflow"});
}

TEST_F(Endings, ACaughtNullReferenceDoesNotEndTheProcess) {
  expectBoth({"catch-null", "end", "5"}, 5, {});
  EXPECT_THAT(log(), HasSubstr("caught"));
}

TEST_F(Endings, AFaultInNativeCodeIsPassedOn) {
  expectBoth({"catch-null", "native", "fault"}, kFaulted, {});
}

TEST_F(Endings, AnAbortInNativeCodeIsPassedOn) {
  expectBoth({"native", "abort"}, kAborted, {kAbort});
}

TEST_F(Endings, AnAbortInNativeCodeAfterAKeywordEndsQuietly) {
  expectQuietWithoutMarker({"say", "loaded some.dll", "native", "abort"});
}

TEST_F(Endings, ADoubleFreeIsPassedOnEvenAfterAKeyword) {
  expectBoth({"say", "loaded some.dll", "native", "double-free"}, kAborted, {kAbort});
  EXPECT_THAT(log(), HasSubstr("double free or corruption"));
}

TEST_F(Endings, ADoubleFreeWithAnotherMessageOfTheCLibraryIsNotAMemoryIssue) {
  expectQuietWithoutMarker({"say", "loaded some.dll", "native", "small-double-free"});
  EXPECT_THAT(log(), HasSubstr("free(): double free detected"));
}

TEST_F(Endings, StackSmashingIsPassedOnEvenAfterAKeyword) {
  expectBoth({"say", "loaded some.dll", "native", "smash"}, kAborted, {kAbort});
  EXPECT_THAT(log(), HasSubstr("stack smashing detected"));
}

TEST_F(Endings, ATerminationEndsQuietly) {
  if (std::stoi(dotnet::findFramework()->version) < 10) {
    QUILLON_SKIP("a runtime before version 10 handles SIGTERM itself");
  }
  expectBothTerminated({"wait"}, 0, {kTerm});
}

TEST_F(Endings, ATerminationThatTheApplicationHandlesHasItsExitStatus) {
  expectBothTerminated({"handle-term", "wait"}, 6, {});
}

TEST_F(Endings, AFaultAfterTheLastCallOfThePluginEndsQuietly) {
  expectBoth({"at-exit", "fault", "end", "5"}, 0, {kAtEnd});
}

TEST_F(Endings, AnAbortAfterTheLastCallOfThePluginEndsQuietly) {
  expectBoth({"at-exit", "abort", "end", "5"}, 0, {kAbort, kAtEnd});
}

}  // namespace
}  // namespace quillon::test
