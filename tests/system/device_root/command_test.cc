// The command line: `quillon device init` and `quillon device shell`.
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>

#include "quillon/base/exit_status.h"
#include "tests/system/device_root/inside.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// Runs the quillon command with `arguments`, which a shell splits.
Outcome quillon(const std::string& arguments) {
  return inChild([&] {
    const std::string line = std::string("exec ") + QUILLON_COMMAND + " device " + arguments;
    ::execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
    return 127;
  });
}

class DeviceCommand : public DeviceRootTest {
 protected:
  // Runs `quillon device shell` with `command` in this test's device root.
  Outcome shell(const std::string& command) {
    return quillon("shell " + root_.string() + " " + command);
  }
};

TEST_F(DeviceCommand, ReturnsTheStatusOfTheCommand) {
  EXPECT_EQ(shell("-- true").status, 0);
  EXPECT_EQ(shell("-- sh -c 'exit 7'").status, 7);
  EXPECT_EQ(shell("-- sh -c 'kill -TERM $$'").status, 128 + 15);
  EXPECT_EQ(shell("-- /no/such/command").status, 127);
  EXPECT_EQ(shell("-- /etc/passwd").status, 126);
}

TEST_F(DeviceCommand, PassesTheArgumentsToTheCommand) {
  EXPECT_EQ(shell("-- echo -n --writable 'a b' -- --help").output, "--writable a b -- --help");
}

TEST_F(DeviceCommand, StartsTheUsersShellWithADevicePrompt) {
  ::setenv("SHELL", "/usr/bin/env", 1);
  const std::string name = root_.filename().string();
  const Outcome outcome = shell("");
  EXPECT_THAT(outcome.output, HasSubstr("\nQUILLON_DEVICE=" + root_.string() + "\n"));
  EXPECT_THAT(outcome.output, HasSubstr("\nPS1=(" + name + ") "));
  ::unsetenv("SHELL");
}

TEST_F(DeviceCommand, TheCommandItselfWorksInside) {
  const Outcome outcome =
      shell("-- " QUILLON_COMMAND " device shell " + root_.string() + " -- cat /.quillon-device");
  EXPECT_EQ(outcome.output, root_.string());
}

TEST_F(DeviceCommand, StaysInTheWorkingDirectory) {
  const fs::path hidden = fresh("/tmp");
  const Outcome outcome = inChild([&] {
    fs::current_path(hidden);
    const Outcome result = shell("-- pwd");
    return result.output == hidden.string() + "\n" ? 0 : 1;
  });
  EXPECT_EQ(outcome.status, 0);
}

TEST_F(DeviceCommand, KeepsPathsWritable) {
  const fs::path one = fresh("/tmp");
  const fs::path other = fresh("/var/tmp");
  const Outcome outcome = shell("--writable " + one.string() + " --writable " + other.string() +
                                " -- touch " + one.string() + "/x " + other.string() + "/x");
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_TRUE(fs::exists(one / "x"));
  EXPECT_TRUE(fs::exists(other / "x"));
}

TEST_F(DeviceCommand, FailuresAreOneLineWithARemedy) {
  const Outcome missing = quillon("shell /no/such/root -- true");
  EXPECT_EQ(missing.status, kNoDeviceRoot);
  EXPECT_EQ(missing.output,
            "quillon: there is no folder '/no/such/root'; create one: quillon device init "
            "/no/such/root\n");
  EXPECT_EQ(shell("--writable / -- true").status, kUnusablePath);
}

TEST_F(DeviceCommand, InitRecordsTheMachinesFramework) {
  const fs::path dotnet = fresh("/var/tmp");
  const fs::path framework = dotnet / "shared/Microsoft.NETCore.App/10.0.1";
  write(framework / "libcoreclr.so", "runtime");
  ::setenv("QUILLON_DOTNET_ROOT", dotnet.c_str(), 1);
  const Outcome made = quillon("init " + root_.string());
  ::setenv("QUILLON_DOTNET_ROOT", "/no/such/dotnet", 1);
  const Outcome refused = quillon("init " + root_.string());
  ::unsetenv("QUILLON_DOTNET_ROOT");
  EXPECT_EQ(made.status, 0) << made.output;
  EXPECT_THAT(made.output, HasSubstr("framework: " + framework.string()));
  EXPECT_EQ(refused.status, kNoRuntime);
  EXPECT_EQ(shell("-- cat /usr/share/dotnet.velora/netcoreapp/libcoreclr.so").output, "runtime");
}

TEST_F(DeviceCommand, InitWithoutAnyRuntimeReportsItAndSucceeds) {
  ::setenv("DOTNET_ROOT", "/no/such/dotnet", 1);
  const std::string path = std::getenv("PATH");
  ::setenv("PATH", "/no/such/path", 1);
  const Outcome made = quillon("init " + root_.string());
  ::setenv("PATH", path.c_str(), 1);
  ::unsetenv("DOTNET_ROOT");
  EXPECT_EQ(made.status, 0);
  EXPECT_THAT(made.output, StartsWith("framework: none; no .NET runtime: wanted"));
}

TEST_F(DeviceCommand, InitTakesANamedFrameworkOrNone) {
  const fs::path framework = fresh("/var/tmp");
  const std::string init = "init " + root_.string() + " --framework ";
  EXPECT_EQ(quillon(init + framework.string()).status, kNoRuntime);
  write(framework / "libcoreclr.so", "named");
  EXPECT_EQ(quillon(init + framework.string()).status, 0);
  EXPECT_EQ(shell("-- cat /usr/share/dotnet.velora/netcoreapp/libcoreclr.so").output, "named");
  EXPECT_EQ(quillon(init + "none").status, 0);
  EXPECT_EQ(shell("-- ls /usr/share/dotnet.velora/netcoreapp").output, "");
}

TEST_F(DeviceCommand, InitKeepsTheDeviceRootsOwnFramework) {
  write(root_ / "usr/share/dotnet.velora/netcoreapp/libcoreclr.so", "own");
  EXPECT_THAT(quillon("init " + root_.string()).output, HasSubstr("the device root's own"));
  EXPECT_EQ(shell("-- cat /usr/share/dotnet.velora/netcoreapp/libcoreclr.so").output, "own");
}

}  // namespace
}  // namespace quillon::test
