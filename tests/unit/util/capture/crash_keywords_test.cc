// Tests of the keywords that the standard-error reader recognizes.
#include "util/log/crash_keywords.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include "tests/unit/util/capture/capture_process.h"
#include "tests/unit/util/capture/scripted_calls.h"
#include "util/log/stream_capture.h"

namespace quillon::test {
namespace {

constexpr int kAMinute = 60'000;

TEST(CrashKeywords, AreTheseInThisOrder) {
  EXPECT_THAT(managedExceptionKeywords,
              ::testing::ElementsAre(
                  ::testing::StrEq("Velora"), ::testing::StrEq("dll"),
                  ::testing::StrEq("Process is terminating due to StackOverflowException.")));
}

TEST(CrashKeywords, TellAManagedExceptionAnywhereInTheText) {
  for (const char* text : {"Velora", "at Velora.App.Main()", "in App.dll:line 3", "dll",
                           "Process is terminating due to StackOverflowException."}) {
    EXPECT_TRUE(hasManagedExceptionKeyword(text)) << text;
  }
  for (const char* text : {"", "velora", "DLL", "dl l", "StackOverflowException.",
                           "Process is terminating due to StackOverflowException"}) {
    EXPECT_FALSE(hasManagedExceptionKeyword(text)) << text;
  }
}

TEST(CrashKeywords, TellMemoryCorruption) {
  EXPECT_TRUE(hasStackSmashingKeyword("*** stack smashing detected ***: terminated"));
  EXPECT_FALSE(hasStackSmashingKeyword("stack smashing"));
  EXPECT_FALSE(hasStackSmashingKeyword("double free or corruption"));
  EXPECT_TRUE(hasDoubleFreeOrCorruptionKeyword("double free or corruption (out)"));
  EXPECT_FALSE(hasDoubleFreeOrCorruptionKeyword("double free"));
  EXPECT_FALSE(hasDoubleFreeOrCorruptionKeyword("stack smashing detected"));
}

struct Words {
  const char* text;
  bool managed;
  bool memory;
};

// Each case runs in its own child process. Later text does not change the flags.
TEST(CrashFlags, AreSetByChunksOfStandardErrorAndStaySet) {
  for (const Words& words :
       {Words{"at Velora.App", true, false}, Words{"libapp.dll", true, false},
        Words{"Process is terminating due to StackOverflowException.", true, false},
        Words{"*** stack smashing detected ***", false, true},
        Words{"double free or corruption (!prev)", false, true},
        Words{"Velora: double free or corruption", true, true},
        Words{"all is well", false, false}}) {
    const Captured captured = inCaptureProcess([&](Notes& notes) {
      tvRunLoggingThread();
      for (const std::string& text : {std::string(words.text), std::string("nothing of note\n")}) {
        put(STDERR_FILENO, text);
        waitForStderrReader(kAMinute);
        notes[text] = std::string(managedExceptionOccurred ? "managed" : "") +
                      (memoryIssueOccurred ? " memory" : "");
      }
    });
    const std::string expected =
        std::string(words.managed ? "managed" : "") + (words.memory ? " memory" : "");
    EXPECT_EQ(captured.note(words.text), expected) << words.text;
    EXPECT_EQ(captured.note("nothing of note\n"), expected) << words.text;
  }
}

// The file name, and with it the time, is created before the first write to the file.
TEST(CrashFlags, AreSetBeforeTheErrorFileIsWritten) {
  const Captured captured = inCaptureProcess([](Notes& notes) {
    calls().onTime = [&] {
      notes["flags"] = managedExceptionOccurred && memoryIssueOccurred ? "set" : "not set";
    };
    tvRunLoggingThread();
    put(STDERR_FILENO, "a.dll: double free or corruption");
    waitForStderrReader(kAMinute);
    calls().onTime = {};
  });
  EXPECT_EQ(captured.note("flags"), "set");
}

TEST(CrashFlags, AddUp) {
  const Captured captured = inCaptureProcess([](Notes&) {
    tvRunLoggingThread();
    for (const char* text : {"x.dll", "between", "stack smashing detected", "after"}) {
      put(STDERR_FILENO, text);
      waitForStderrReader(kAMinute);
    }
  });
  EXPECT_TRUE(captured.managedException);
  EXPECT_TRUE(captured.memoryIssue);
}

TEST(CrashFlags, DoNotCareForStandardOutput) {
  const Captured captured = inCaptureProcess([](Notes&) {
    tvRunLoggingThread();
    put(STDOUT_FILENO, "Velora.dll: double free or corruption");
  });
  EXPECT_FALSE(captured.managedException);
  EXPECT_FALSE(captured.memoryIssue);
}

}  // namespace
}  // namespace quillon::test
