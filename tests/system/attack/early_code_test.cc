// What a package can make the runtime load before the plug-in decides about its application. The
// process has all capabilities of its user until then.
#include <gmock/gmock.h>

#include <filesystem>
#include <string>

#include "quillon/base/exit_status.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kBin[] = "/opt/usr/apps/org.velora.sample.clock/bin/";
constexpr char kManifest[] =
    "[package]\n"
    "id = 'org.velora.sample.clock'\n"
    "version = '2.0'\n"
    "files = 'org.velora.sample.clock'\n"
    "[[application]]\n"
    "id = 'org.velora.sample.clock'\n"
    "exec = 'bin/SampleClock.dll'\n";

class EarlyCode : public LaunchpadTest {
 protected:
  void SetUp() override {
    LaunchpadTest::SetUp();
    if (!IsSkipped() && !HasFatalFailure()) {
      installClock(kManifest);
    }
  }
  void installLibrary(const std::string& name) const {
    fs::copy_file(QUILLON_MARKS_LOADING, at(kBin + name));
  }
  bool wasLoaded() const { return fs::exists(at("/tmp/loaded-library")); }
  void configure(const std::string& name, const std::string& value) const {
    write(at(std::string(kBin) + "SampleClock.runtimeconfig.json"),
          R"({"runtimeOptions": {"configProperties": {")" + name + "\": \"" + value + "\"}}}");
  }
};

TEST_F(EarlyCode, InPlaceOfTheFrameworksLibraryIsNotLoaded) {
  installLibrary("libSystem.Native.so");
  const CommandResult refused = launch({kClock});
  EXPECT_EQ(refused.status, 0);
  EXPECT_THAT(refused.err, HasSubstr("platform privilege"));
  EXPECT_FALSE(wasLoaded());
}

struct Setting {
  const char* name;
  const char* value;
};

void PrintTo(const Setting& setting, std::ostream* out) { *out << setting.name; }

class EarlySetting : public EarlyCode, public ::testing::WithParamInterface<Setting> {};

// In a direct launch and by a launch pad, which prepares nothing for it.
TEST_P(EarlySetting, IsRefused) {
  installLibrary("libevil.so");
  configure(GetParam().name, GetParam().value);
  start(1, 0, {"--type", "inhouse"});
  for (const char* way : {"--direct", "--verbose"}) {
    const CommandResult refused = launch({way, kClock});
    EXPECT_EQ(refused.status, kNotExecutable);
    EXPECT_THAT(refused.err, HasSubstr(", which a package may not; remove the setting"));
  }
  EXPECT_FALSE(wasLoaded());
  EXPECT_THAT(status(), Not(HasSubstr(std::string(GetParam().name) + "=")));  // in a pool's line
}

INSTANTIATE_TEST_SUITE_P(
    All, EarlySetting,
    ::testing::Values(
        Setting{"System.GC.Path", "/opt/usr/apps/org.velora.sample.clock/bin/libevil.so"},
        Setting{"System.GC.Name",
                "../../../../opt/usr/apps/org.velora.sample.clock/bin/libevil.so"},
        Setting{"System.GC.Path\\u0000", "/opt/usr/apps/org.velora.sample.clock/bin/libevil.so"},
        Setting{"HOST_RUNTIME_CONTRACT", "0x1234"}, Setting{"PINVOKE_OVERRIDE", "1"},
        Setting{"BUNDLE_PROBE", "0x1234"}));

// A garbage collector of the framework's folder.
TEST_F(EarlyCode, OfTheFrameworkMayBeNamed) {
  installClock(std::string(kManifest).insert(
      sizeof "[package]\n" - 1, "privileges = ['/privilege/internal/default/platform']\n"));
  configure("System.GC.Name", "libclrgc.so");
  const CommandResult launched = launch({kClock});
  EXPECT_EQ(launched.status, 0);
  EXPECT_EQ(launched.err, "");
}

}  // namespace
}  // namespace quillon::test
