// Packages that make .NET's own host misbehave when it is asked about them, and what launches do.
#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "quillon/dotnet/runtime_lookup.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kPackage[] = R"(
[package]
id = "org.velora.sample.clock"
version = "2.0"
files = "org.velora.sample.clock"
privileges = ["/privilege/internal/default/platform"]
[[application]]
id = "org.velora.sample.clock"
exec = "bin/SampleClock.dll"
)";

// A .NET folder whose host is fake_hostfxr.c, and a package that tells it how to behave.
class FrameworkHost : public LaunchpadTest {
 protected:
  void SetUp() override {
    LaunchpadTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) {
      return;
    }
    const fs::path framework = fresh("dotnet") / "shared/Microsoft.NETCore.App/0.0.1";
    fs::create_directories(framework.parent_path());
    fs::rename(frameworkWithout("none"), framework);
    fs::create_directories(fresh("dotnet") / "host/fxr/0.0.1");
    fs::copy(QUILLON_FAKE_HOSTFXR, fresh("dotnet") / "host/fxr/0.0.1/libhostfxr.so");
    makeDevice(framework.string());
  }
  // Installs the sample clock so that the host behaves in this way.
  CommandResult installWith(const std::string& behaviour) const {
    const fs::path folder = fresh("hostile");
    fs::create_directories(folder);
    fs::copy(fs::path(QUILLON_BUILD_DIRECTORY) / "managed/packages" / kClock, folder / kClock,
             fs::copy_options::recursive);
    const std::string version = dotnet::findFramework()->version;
    write(folder / kClock / "bin/SampleClock.runtimeconfig.json",
          R"({"runtimeOptions": {"framework": {"name": "Microsoft.NETCore.App", "version": ")" +
              version + "\"}}}");
    write(folder / kClock / "bin/SampleClock.deps.json", behaviour);
    write(folder / "clock.toml", kPackage);
    CommandResult installed = run({std::string(QUILLON_BUILD_DIRECTORY) + "/bin/quillon", "package",
                                   "install", "--device", root(), folder / "clock.toml"});
    EXPECT_EQ(installed.status, 0) << installed.err;
    return installed;
  }
  // Expects that the package is launched with one warning, and that nothing asks again.
  void expectWarning(const std::string& behaviour, const std::string& warning) {
    EXPECT_THAT(installWith(behaviour).err, HasSubstr(warning));
    start(1);
    const CommandResult launched = launch({"--direct", kClock});
    EXPECT_EQ(launched.status, 0);
    EXPECT_THAT(launched.err, HasSubstr(warning));
    prepareFor({kClock});
    const CommandResult prepared = launch({kClock});
    EXPECT_EQ(prepared.status, 0);
    EXPECT_THAT(prepared.err, HasSubstr(warning));
    EXPECT_EQ(served(), 1);
    EXPECT_TRUE(isAlive(launchpad())) << errors();
  }
  bool leftFolders() const {
    for (const auto& entry : fs::directory_iterator(at("/tmp"))) {
      if (entry.path().filename().string().starts_with("quillon-dotnet-")) {
        return true;
      }
    }
    return false;
  }
};

// A slow machine is no reason to keep the answer.
TEST_F(FrameworkHost, ThatHangsIsEndedAndAskedByDirectLaunchesOnly) {
  EXPECT_THAT(installWith("hang").err, HasSubstr("the host takes too long"));
  start(1);
  const CommandResult launched = launch({kClock, "--verbose"});
  EXPECT_EQ(launched.status, 0);
  EXPECT_THAT(launched.err, HasSubstr("the host takes too long"));
  EXPECT_THAT(launched.err, HasSubstr("a direct launch has to ask .NET's host"));
  EXPECT_TRUE(isAlive(launchpad())) << errors();
  EXPECT_FALSE(leftFolders());
}

TEST_F(FrameworkHost, ThatCrashesEndsNobody) {
  expectWarning("crash", "the host was ended by signal 11");
  EXPECT_FALSE(leftFolders());
}

TEST_F(FrameworkHost, ThatAnswersWithoutEndIsNotBelieved) {
  EXPECT_THAT(installWith("flood").err, HasSubstr("writes too much"));
  EXPECT_EQ(launch({kClock}).status, 0);
}

TEST_F(FrameworkHost, HasNoTerminalAndNamesNoPathThatLeadsUp) {
  const CommandResult installed = installWith("print");
  EXPECT_THAT(installed.out, Not(HasSubstr("printed by the host")));
  const CommandResult plan = launch({kClock, "--plan", "--json"});
  EXPECT_THAT(plan.out, Not(HasSubstr("passwd")));
  EXPECT_THAT(plan.out, Not(HasSubstr("shadow\"")));
  EXPECT_THAT(plan.out, Not(HasSubstr("relative/x.dll")));
}

}  // namespace
}  // namespace quillon::test
