// How a launch pad is started has no effect on its applications, or it refuses to start.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "quillon/base/exit_status.h"
#include "tests/support/program.h"
#include "tests/system/attack/limited_run.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::StartsWith;

const std::string kQuillon = std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon";

class LaunchpadStart : public LaunchpadTest {
 protected:
  CommandResult shell(const std::string& script) const {
    return runLimited({"/bin/sh", "-c", script});
  }
  std::string device() const { return " --device '" + root().string() + "' "; }
};

TEST_F(LaunchpadStart, IsRefusedWithTooFewDescriptors) {
  const CommandResult refused =
      shell("ulimit -n 40; exec " + kQuillon + " launchpad --type none" + device());
  EXPECT_EQ(refused.status, kServiceFailed);
  EXPECT_EQ(refused.out, "");
  EXPECT_THAT(refused.err, StartsWith("quillon: the launch pad needs "));
  EXPECT_THAT(refused.err, HasSubstr(" file descriptors, and the limit is 40; "));
  EXPECT_EQ(std::count(refused.err.begin(), refused.err.end(), '\n'), 1) << refused.err;
}

// The launch pad executes itself again without HOME, which names the device root of its user.
TEST_F(LaunchpadStart, WithoutAnOptionServesTheDeviceRootOfItsUser) {
  const std::vector<std::string> quillon = {
      "/usr/bin/env",           "-i",     "PATH=/usr/bin:/bin", "HOME=" + fresh("home").string(),
      kRuntimeSanitizerOptions, kQuillon, "launchpad"};
  const auto action = [&](const std::string& name) {
    std::vector<std::string> command = quillon;
    command.push_back(name);
    return runLimited(command);
  };
  std::vector<std::string> serve = quillon;
  serve.insert(serve.end(), {"--type", "none"});
  Program launchpad(serve);
  launchpad.start();
  EXPECT_TRUE(eventually([&] { return action("status").status == 0; }));
  EXPECT_EQ(action("stop").status, 0);
  launchpad.terminate();
  const Finished ended = launchpad.finish();
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_TRUE(fs::exists(fresh("home") / ".local/share/quillon/device"));
}

// A failure of the launch pad itself says nothing about the application type.
TEST_F(LaunchpadStart, AFreshProcessThatDoesNotComeUpIsTriedAgain) {
  const fs::path copy = fresh("copy");
  fs::create_directories(copy / "bin");
  fs::copy_file(kQuillon, copy / "bin/quillon");
  fs::copy(QUILLON_BUILD_DIRECTORY "/libexec", copy / "libexec");
  fs::create_directories(copy / "lib");
  for (const auto& entry : fs::directory_iterator(QUILLON_BUILD_DIRECTORY "/lib")) {
    if (entry.is_directory() || entry.path().extension() == ".so") {
      fs::copy(entry.path(), copy / "lib" / entry.path().filename());
    }
  }
  useProgram(copy / "bin/quillon");
  start(1, 0, {"--fresh", "--type", "inhouse"});
  ASSERT_TRUE(awaitProcesses("ready", 1)) << status() << errors();
  // As if another version was installed, which does not know the internal command.
  write(copy / "libexec/another", "#!/bin/sh\nexit " + std::to_string(kUsage) + "\n");
  fs::permissions(copy / "libexec/another", fs::perms::owner_all);
  fs::rename(copy / "libexec/another", copy / "libexec/quillon");
  EXPECT_EQ(control("reload").status, 0);
  EXPECT_TRUE(eventually([&] {
    return errors().find("ended unexpectedly; the next one starts in") != std::string::npos ||
           status().find("pool 1") == std::string::npos;
  }));
  EXPECT_THAT(status(), HasSubstr("pool 1: inhouse"));
}

#ifdef QUILLON_SETS_VARIABLE
class LaunchpadWithLibrary : public LaunchpadStart {
 protected:
  bool prepareLaunchpadProcess() const override {
    return setenv("LD_PRELOAD", QUILLON_SETS_VARIABLE, 1) == 0;
  }
};

// The launch pad executes itself again to lose the other variables of its environment.
TEST_F(LaunchpadWithLibrary, ThatSetsVariablesServes) {
  start(1);
  EXPECT_THAT(status(), StartsWith("serving"));
  const std::string environment = contentOf("/proc/" + std::to_string(launchpad()) + "/environ");
  EXPECT_EQ(environment.find("HOME="), std::string::npos);
}
#endif

// The application gets the questions of the probe as its standard input.
TEST_F(LaunchpadStart, WithoutStandardInputKeepsThatOfTheClient) {
  const int kept = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
  close(STDIN_FILENO);
  start(1);
  dup2(kept, STDIN_FILENO);
  close(kept);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitProcesses("ready", 1)) << status() << errors();
  RunningProbe probe(root(), "inhouse");
  EXPECT_EQ(served(), 1);
  const fs::path process = "/proc/" + probe.ask("process");
  EXPECT_THAT(fs::read_symlink(process / "fd/0").string(), StartsWith("pipe:"));
}

// The next file that the client opens must not become the application's standard input, which would
// wait for the launch pad then.
TEST_F(LaunchpadStart, AClientWithoutStandardInputHandsOverAnEmptyOne) {
  start(1);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitProcesses("ready", 1)) << status() << errors();
  const CommandResult ending =
      shell("exec " + kQuillon + " launch" + device() + "--type inhouse --verbose " + kProbe +
            " -- --answers /tmp/answers <&-");
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_THAT(ending.err, HasSubstr("launched by the launch pad"));
}

}  // namespace
}  // namespace quillon::test
