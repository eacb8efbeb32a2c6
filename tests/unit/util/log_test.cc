#define QUILLON_UNIT_FILE "some-unit.cc"
#define QUILLON_UNIT_PATH "plugin/src/some-unit.cc"

#include "util/log/log.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "quillon_tv_plugin.h"
#include "tests/support/memory_in_use.h"
#include "tests/support/recording_platform.h"
#include "util/log/stream_capture.h"

using quillon::test::LogRecord;
using quillon::test::memoryInUse;
using quillon::test::platform;
using quillon::test::PlatformTest;

namespace {

using Log = PlatformTest;

void writeDebug() { QLOG_DEBUG("a %d", 1); }
void writeTrace() { QLOG_TRACE("b %s", "two"); }
void writeInfo() { QLOG_INFO("c"); }
void writeError() { QLOG_ERROR("d %s, %s", "x", "y"); }

void expectLine(const LogRecord& record, int priority, const std::string& colour,
                const std::string& function, const std::string& message) {
  EXPECT_EQ(record.logId, 0);
  EXPECT_EQ(record.priority, priority);
  EXPECT_EQ(record.tag, "QUILLON");
  EXPECT_EQ(record.text, "some-unit.cc: " + function + "(" + std::to_string(record.line()) +
                             ") > " + colour + message + "\x1b[0m\n");
  EXPECT_GT(record.line(), 0);
}

TEST_F(Log, EachLevelHasItsPriorityAndColour) {
  writeDebug();
  writeTrace();
  writeInfo();
  writeError();
  ASSERT_EQ(platform().log.size(), 4U);
  expectLine(platform().log[0], 3, "\x1b[0m", "writeDebug", "a 1");
  expectLine(platform().log[1], 3, "\x1b[90m", "writeTrace", "b two");
  expectLine(platform().log[2], 4, "\x1b[36m", "writeInfo", "c");
  expectLine(platform().log[3], 6, "\x1b[31m", "writeError", "d x, y");
}

TEST_F(Log, LineNumberIsThatOfTheCall) {
  QLOG_INFO("here");
  const int expected = __LINE__ - 1;
  ASSERT_EQ(platform().log.size(), 1U);
  EXPECT_EQ(platform().log[0].line(), expected);
  EXPECT_EQ(platform().log[0].function(), "TestBody");
}

TEST_F(Log, MacrosAreOneStatementAndEvaluateOnce) {
  int calls = 0;
  const auto count = [&calls] { return ++calls; };
  for (const bool first : {true, false}) {
    if (first) {
      QLOG_ERROR("first %d", count());
    } else {
      QLOG_DEBUG("second %d", count());
    }
  }
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(platform().lines(), (std::vector<std::string>{"6 first 1", "3 second 2"}));
}

TEST_F(Log, MessageThatLooksLikeAFormatIsText) {
  QLOG_INFO("%s", "100%s %n");
  EXPECT_EQ(platform().messages(DLOG_INFO), std::vector<std::string>{"100%s %n"});
}

using Tracker = PlatformTest;

TEST_F(Tracker, MarksEntryAndExitInLogAndTrace) {
  {
    const FunctionEntryExitTracker tracker("void* f(void*)", "plugin/src/unit.cc", 12);
    EXPECT_EQ(platform().trace, std::vector<std::string>{"begin unit.cc(12) void* f(void*)"});
    ASSERT_EQ(platform().log.size(), 1U);
  }
  ASSERT_EQ(platform().log.size(), 2U);
  EXPECT_EQ(platform().log[0].priority, 3);
  EXPECT_EQ(platform().log[0].text,
            "log.h: FunctionEntryExitTracker(78) > \x1b[90m +DotNETLog:unit.cc(12) void* f(void*)"
            "\x1b[0m\n");
  EXPECT_EQ(platform().log[1].priority, 3);
  EXPECT_EQ(platform().log[1].text,
            "log.h: ~FunctionEntryExitTracker(87) > \x1b[90m-DotNETLog:unit.cc(12) void* f(void*)"
            "\x1b[0m\n");
  EXPECT_EQ(platform().trace,
            (std::vector<std::string>{"begin unit.cc(12) void* f(void*)", "end"}));
}

TEST_F(Tracker, KeepsAPathWithoutSlashUnchanged) {
  { const FunctionEntryExitTracker tracker("f", "unit.cc", -3); }
  ASSERT_EQ(platform().log.size(), 2U);
  EXPECT_EQ(platform().log[0].message(), " +DotNETLog:unit.cc(-3) f");
}

TEST_F(Tracker, LeavesNoNameAfterATrailingSlash) {
  { const FunctionEntryExitTracker tracker("f", "dir/", 1); }
  EXPECT_EQ(platform().log[0].message(), " +DotNETLog:(1) f");
}

TEST_F(Tracker, TakesSignatureAndUnitFromTheMacro) {
  int line = 0;
  const auto traced = [&line](int) {
    line = __LINE__ + 1;
    QLOG_SCOPE();
  };
  traced(1);
  ASSERT_EQ(platform().log.size(), 2U);
  const std::string message = platform().log[0].message();
  EXPECT_EQ(message.rfind(" +DotNETLog:some-unit.cc(" + std::to_string(line) + ") ", 0), 0U)
      << message;
  EXPECT_NE(message.find("(int)"), std::string::npos) << message;
}

TEST_F(Tracker, ClosesItsScopeWhenAnExceptionLeavesIt) {
  EXPECT_THROW(
      {
        QLOG_SCOPE();
        throw 1;
      },
      int);
  ASSERT_EQ(platform().trace.size(), 2U);
  EXPECT_EQ(platform().trace[1], "end");
}

TEST_F(Tracker, LogsBeforeItTraces) {
  {
    QLOG_SCOPE();
    QLOG_DEBUG("inside");
  }
  using ::testing::StartsWith;
  EXPECT_THAT(platform().events,
              ::testing::ElementsAre(StartsWith("log  +DotNETLog:"), StartsWith("begin "),
                                     "log inside", StartsWith("log -DotNETLog:"), "end"));
}

using Milestone = PlatformTest;

TEST_F(Milestone, IsMarkedBeforeItIsLogged) {
  TTraceLog("reached");
  EXPECT_THAT(platform().events, ::testing::ElementsAre("marker reached", "log reached"));
}

TEST_F(Milestone, GoesToTheMarkerChannelAndTheLog) {
  TTraceLog("[quillon-tv-plugin] 100%s");
  EXPECT_EQ(platform().markers, std::vector<std::string>{"[quillon-tv-plugin] 100%s"});
  ASSERT_EQ(platform().log.size(), 1U);
  EXPECT_EQ(platform().log[0].priority, 4);
  EXPECT_EQ(platform().log[0].tag, "QUILLON");
  EXPECT_EQ(platform().log[0].text,
            "log.cc: TTraceLog(242) > \x1b[36m[quillon-tv-plugin] 100%s\x1b[0m\n");
}

using TracerEntry = PlatformTest;

TEST_F(TracerEntry, InfoHasItsOwnTagAndNoColour) {
  print_log_info(strdup("heap 5%s"));
  ASSERT_EQ(platform().log.size(), 1U);
  EXPECT_EQ(platform().log[0].logId, 0);
  EXPECT_EQ(platform().log[0].priority, 4);
  EXPECT_EQ(platform().log[0].tag, "GCTracer");
  EXPECT_EQ(platform().log[0].text, "quillon-tv-plugin.cc: print_log_info(222) > heap 5%s");
  EXPECT_EQ(platform().markers, std::vector<std::string>{"heap 5%s"});
}

TEST_F(TracerEntry, DebugDiffersInPriorityAndOrigin) {
  print_log_debug(strdup("x"));
  ASSERT_EQ(platform().log.size(), 1U);
  EXPECT_EQ(platform().log[0].priority, 3);
  EXPECT_EQ(platform().log[0].tag, "GCTracer");
  EXPECT_EQ(platform().log[0].text, "quillon-tv-plugin.cc: print_log_debug(216) > x");
  EXPECT_EQ(platform().markers, std::vector<std::string>{"x"});
}

TEST_F(TracerEntry, FreesItsText) {
  const std::string large(4U << 20, 'x');
  const auto memoryAfterPrinting = [&large] {
    print_log_info(strdup(large.c_str()));
    platform().reset();
    return memoryInUse();
  };
  const std::size_t before = memoryAfterPrinting();
  EXPECT_LT(memoryAfterPrinting(), before + large.size());
}

TEST_F(TracerEntry, IgnoresANullText) {
  print_log_info(nullptr);
  EXPECT_TRUE(platform().log.empty());
  EXPECT_TRUE(platform().markers.empty());
}

TEST(CaptureMessage, GoesNowhereBeforeCapture) {
  EXPECT_EQ(pStdErr[1], -1);
  EXPECT_EQ(pStdOut[1], -1);
  EXPECT_EQ(stderrFP, nullptr);
  EXPECT_EQ(sendMessageToDlogError("lost"), -1);
}

TEST(CaptureMessage, WritesItsBytesAndNothingElse) {
  ASSERT_EQ(pipe(pStdErr), 0);
  EXPECT_EQ(sendMessageToDlogError("as %s is"), 8);
  std::array<char, 32> buffer{};
  EXPECT_EQ(read(pStdErr[0], buffer.data(), buffer.size()), 8);
  EXPECT_STREQ(buffer.data(), "as %s is");
  close(pStdErr[0]);
  close(pStdErr[1]);
  pStdErr[0] = pStdErr[1] = -1;
}

}  // namespace
