// The built plug-in captures standard output and error.
#include <gmock/gmock.h>

#include <algorithm>

#include "tests/system/device/device_fixture.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;

class Capture : public DeviceLaunch {
 protected:
  // Returns the device paths of the error files of all launches.
  std::vector<std::string> errorFiles() const {
    std::vector<std::string> paths;
    for (const auto& entry : fs::directory_iterator(onMachine("/tmp"))) {
      const std::string name = entry.path().filename();
      if (name.starts_with("dotnet_error.")) {
        paths.push_back("/tmp/" + name);
      }
    }
    return paths;
  }

  static size_t count(const DriverRun& launched, const std::string& line) {
    const auto lines = launched.lines();
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
  }
};

TEST_F(Capture, BothStreamsReachTheLogAndErrorsTheirFile) {
  const DriverRun launched = run({"initialize=inhouse", "has_log_control", "print=to the world",
                                  "print_error=first complaint", "logged=first complaint",
                                  "print_error=second 100%s", "logged=second", "logged=world"});
  EXPECT_EQ(launched.status, 0);
  EXPECT_THAT(launched.messages(3), Contains("to the world"));
  EXPECT_THAT(launched.messages(6), ElementsAre("first complaint", "second 100%s"));
  ASSERT_EQ(errorFiles().size(), 1U);
  EXPECT_THAT(errorFiles()[0], MatchesRegex("/tmp/dotnet_error\\.[0-9]+\\.[0-9]+\\.log"));
  EXPECT_EQ(read(errorFiles()[0]), "first complaint\nsecond 100%s\n");
}

TEST_F(Capture, StartsOnlyOnce) {
  const DriverRun launched =
      run({"initialize=inhouse", "has_log_control", "has_log_control", "threads"});
  EXPECT_EQ(count(launched, "3 Run TV Logging Thread"), 1U);
  EXPECT_EQ(launched.result("threads").size(), 3U);
  EXPECT_THAT(launched.result("threads"), Contains("Stdout Thread"));
  EXPECT_THAT(launched.result("threads"), Contains("Stderr Thread"));
  EXPECT_THAT(errorFiles(), IsEmpty());
}

TEST_F(Capture, ADescriptorLimitLeavesTheStreamsAsTheyAre) {
  const DriverRun launched = run({"initialize=inhouse", "starved_has_log_control",
                                  "has_log_control", "print=seen", "threads", "finalize"});
  EXPECT_EQ(launched.status, 0);
  EXPECT_EQ(launched.result("starved_has_log_control"), true);
  EXPECT_EQ(launched.result("has_log_control"), true);
  EXPECT_THAT(launched.messages(6),
              ElementsAre("fail to create pipe for stdout logging",
                          "Failed to initnialize LogManager", "Failed to create logging thread"));
  EXPECT_THAT(launched.output, ::testing::HasSubstr("\nseen\n"));
  EXPECT_EQ(launched.result("threads").size(), 1U);
}

TEST_F(Capture, AReaderThatCannotStartLeavesTheApplicationAlive) {
  const DriverRun launched = run({"initialize=inhouse", "forbid_threads", "has_log_control",
                                  "print=unread", "print_error=unread", "finalize"});
  EXPECT_EQ(launched.status, 0);
  ASSERT_EQ(launched.result("forbid_threads"), 0);
  EXPECT_EQ(launched.result("has_log_control"), true);
  EXPECT_EQ(launched.result("finalize")["after"], true);
  EXPECT_THAT(launched.messages(6),
              ElementsAre("fail to create pthread", "Failed to create logging thread"));
  EXPECT_THAT(launched.output, Not(::testing::HasSubstr("\nunread\n")));
}

TEST_F(Capture, WithoutADescriptorForItsFileAnErrorIsLogged) {
  const DriverRun launched =
      run({"initialize=inhouse", "has_log_control", "starved_print_error=no file for this",
           "print_error=but for this", "logged=but for this"});
  EXPECT_EQ(launched.result("starved_print_error"), true);
  EXPECT_THAT(launched.messages(6), ElementsAre("no file for this", "but for this"));
  ASSERT_EQ(errorFiles().size(), 1U);
  EXPECT_EQ(read(errorFiles()[0]), "but for this\n");
}

TEST_F(Capture, OnAFullDiskErrorsAreLogged) {
  const DriverRun launched = run(
      {"initialize=inhouse", "has_log_control", "fill_tmp", "print_error=one", "logged=one",
       "print_error=two", "logged=> \\u001b[31mtwo", "print=three", "logged=three", "finalize"});
  if (launched.result("fill_tmp") != true) {
    QUILLON_SKIP("no file system can be mounted in the device root");
  }
  EXPECT_EQ(launched.status, 0);
  EXPECT_EQ(launched.result("logged", 1), true);
  EXPECT_THAT(launched.messages(6), ElementsAre("one", "two"));
  EXPECT_EQ(launched.result("finalize")["after"], true);
}

}  // namespace
}  // namespace quillon::test
