// Every row of docs/exit-status.md with which a launch can end: the status, and one line that names
// the cause and the remedy.
#include "quillon/base/exit_status.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "tests/support/sanitized.h"
#include "tests/system/launch/sample_device.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr char kQuillon[] = QUILLON_BUILD_DIRECTORY "/bin/quillon";
constexpr char kLibraryPath[] = QUILLON_BUILD_DIRECTORY "/lib";
constexpr char kBin[] = "/opt/usr/apps/org.velora.sample.clock/bin/";

void expectOneLine(const CommandResult& result, int status, const std::string& what,
                   const std::string& remedy) {
  EXPECT_EQ(result.status, status);
  EXPECT_THAT(result.err, AllOf(StartsWith("quillon: "), HasSubstr(what), HasSubstr(remedy)));
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
}

// Rows that need no runtime.
class ExitStatus : public LaunchTest {
 protected:
  void SetUp() override {
    LaunchTest::SetUp();
    if (!IsSkipped()) {
      makeDevice("none");
    }
  }
};

TEST_F(ExitStatus, ARefusalForWantOfTheZoneNamesTheRemedy) {
  fs::create_directories(at("/zone/appzone"));
  fs::create_directories(at("/usr/lib"));
  fs::copy_file(std::string(kLibraryPath) + "/quillon/libzone.so.5", at("/usr/lib/libzone.so.5"));
  const CommandResult result = launch({"--type", "dotnet", kClock});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err,
              HasSubstr("it logged: Zone Context is NULL!; the zone of the device root does not "
                        "run; start it: quillon zone start appzone --device " +
                        root().string() + "\n"));
}

TEST_F(ExitStatus, OfAnUnknownOption) {
  expectOneLine(launch({kClock, "--no-such-option"}), kUsage, "--no-such-option", "--help");
}

TEST_F(ExitStatus, OfAnUnknownApplicationType) {
  expectOneLine(launch({kClock, "--type", "wrong"}), kUsage, "'wrong'", "--type inhouse");
}

TEST_F(ExitStatus, OfAMissingDeviceRoot) {
  const std::string nowhere = fresh("nowhere").string();
  expectOneLine(run({kQuillon, "launch", "--device", nowhere, kClock}), kNoDeviceRoot, nowhere,
                "quillon device init");
}

TEST_F(ExitStatus, OfAMissingPlugin) {
  expectOneLine(launch({kClock, "--plugin", "/no/plugin.so"}), kNoPlugin, "/no/plugin.so",
                "--plugin FILE");
}

TEST_F(ExitStatus, OfAPluginThatLacksAFunction) {
  const std::string other = std::string(kLibraryPath) + "/libquillon-platform.so";
  expectOneLine(launch({kClock, "--plugin", other}), kNoPlugin, "no function plugin_initialize",
                "--plugin FILE");
}

TEST_F(ExitStatus, OfAnApplicationThatIsNotInstalled) {
  expectOneLine(launch({"org.example.none"}), kNotInstalled, "'org.example.none'",
                "quillon package install");
  expectOneLine(launch({"--id", ""}), kNotInstalled, "''", "quillon package install");
}

TEST_F(ExitStatus, OfAPathWithAColon) {
  expectOneLine(launch({kClock, "--path", "/opt/usr/a:b/c.dll"}), kUnusablePath,
                "'/opt/usr/a:b/c.dll' holds ':'", "rename");
}

TEST_F(ExitStatus, OfADamagedRegistry) {
  write(at("/opt/usr/share/quillon/packages.db"), std::string(5000, 'x'));
  const CommandResult result = launch({kClock});
  EXPECT_EQ(result.status, kServiceFailed);
  EXPECT_THAT(result.err, HasSubstr("packages.db"));
}

TEST_F(ExitStatus, OfAMissingRuntime) {
  expectOneLine(launch({kClock}), kNoRuntime, "found an empty folder", "quillon device init");
}

// Rows that need a runtime.
class RuntimeExitStatus : public RuntimeTest {};

TEST_F(RuntimeExitStatus, OfAMissingAssembly) {
  makeDevice();
  expectOneLine(launch({kClock, "--path", "/opt/usr/none.dll"}), kNoAssembly, "'/opt/usr/none.dll'",
                "--path");
}

TEST_F(RuntimeExitStatus, OfARuntimeThatIsTooOld) {
  makeDevice();
  write(
      at(std::string(kBin) + "SampleClock.runtimeconfig.json"),
      R"({"runtimeOptions": {"framework": {"name": "Microsoft.NETCore.App", "version": "99.1.0"}}})");
  expectOneLine(launch({kClock}), kNoRuntime, "wanted Microsoft.NETCore.App 99.1.0, found ",
                "quillon device init");
}

TEST_F(RuntimeExitStatus, OfAnUnreadableRuntimeConfiguration) {
  makeDevice();
  write(at(std::string(kBin) + "SampleClock.runtimeconfig.json"), "{");
  expectOneLine(launch({kClock}), kNotExecutable, "SampleClock.runtimeconfig.json", "build");
}

TEST_F(RuntimeExitStatus, OfAFrameworkWithoutItsCoreLibrary) {
  makeDevice(frameworkWithout("System.Private.CoreLib.dll"));
  const CommandResult result = launch({kClock});
  expectOneLine(result, kRuntimeFailed, "coreclr_initialize", "quillon device init");
  EXPECT_THAT(result.err, HasSubstr("0x80070002 (file not found)"));
  EXPECT_THAT(result.err,
              HasSubstr("/usr/share/dotnet.velora/netcoreapp/System.Private.CoreLib.dll"));
}

TEST_F(RuntimeExitStatus, OfAFrameworkWithoutItsCompiler) {
  makeDevice(frameworkWithout("libclrjit.so"));
  expectOneLine(launch({kClock}), kRuntimeFailed,
                "/usr/share/dotnet.velora/netcoreapp/libclrjit.so", "quillon device init");
}

TEST_F(RuntimeExitStatus, OfAFileThatIsNotAnAssembly) {
  makeDevice();
  const std::string bad = std::string(kBin) + "Bad.dll";
  write(at(bad), "no assembly");
  expectOneLine(launch({kClock, "--path", bad}), kNotExecutable, bad, "OutputType Exe");
}

TEST_F(RuntimeExitStatus, OfAnAssemblyWithoutEntryPoint) {
  makeDevice();
  const std::string library =
      "/opt/usr/apps/org.velora.sample.moon/shared/res/d.pc/Velora.Sample.Moon.dll";
  expectOneLine(launch({kClock, "--path", library}), kNotExecutable, "no entry point",
                "OutputType Exe");
}

TEST_F(RuntimeExitStatus, IsZeroWithALineWhenThePluginRefusesThePath) {
  makeDevice();
  const std::string elsewhere = "/opt/data/SampleClock.dll";
  fs::copy(at(std::string(kBin) + "SampleClock.dll"), at(elsewhere));
  expectOneLine(launch({kClock, "--path", elsewhere}), kSuccess,
                "### Not allowed App Path ### = " + elsewhere, "/usr/, /opt/usr/ or /opt/share/");
}

TEST_F(RuntimeExitStatus, IsZeroWithALineWhenThePluginMissesThePrivilege) {
  makeDevice();
  installClock(R"(
[package]
id = "org.velora.sample.clock"
version = "2.0"
files = "org.velora.sample.clock"
[[application]]
id = "org.velora.sample.clock"
exec = "bin/SampleClock.dll"
)");
  expectOneLine(launch({kClock}), kSuccess, "### This App doesn't have platform privilege ###",
                "to the privileges of its manifest");
}

// Launches with a limit of open files, which applies inside the device root only, because to enter
// it needs descriptors too.
class FewDescriptors : public RuntimeExitStatus {
 protected:
  void SetUp() override {
    if (isSanitized()) {
      GTEST_SKIP() << "the sanitizers' check of an exception's type needs descriptors of its own";
    }
    makeDevice();
  }
  CommandResult launchWith(int descriptors) {
    const std::string device = root().string();
    const std::string script = "ulimit -n " + std::to_string(descriptors) + "; exec " +
                               std::string(kQuillon) + " launch --raw --device '" + device + "' " +
                               kClock;
    return run({kQuillon, "device", "shell", device, "--", "sh", "-c", script},
               {"QUILLON_LOG=none"});
  }
};

TEST_F(FewDescriptors, AreAServiceFailureIfNoneIsLeftForPlaceholders) {
  expectOneLine(launchWith(12), kServiceFailed, "Fail to open /proc/self", "ulimit -n");
}

TEST_F(FewDescriptors, AreNamedInTheRemedyIfTheRuntimeDoesNotStart) {
  expectOneLine(launchWith(18), kRuntimeFailed, "coreclr_initialize",
                "raise the limit of open files, which is only 18 (ulimit -n)");
}

}  // namespace
}  // namespace quillon::test
