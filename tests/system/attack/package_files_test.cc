// One package's damaged files, and what the launch pad does for the others.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <system_error>

#include "quillon/base/exit_status.h"
#include "tests/support/sanitized.h"
#include "tests/support/skip.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

constexpr char kClockFolder[] = "/opt/usr/apps/org.velora.sample.clock/bin/";

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) {
    all += text;
  }
  return all;
}

std::string configWith(const std::string& value) {
  return R"({"runtimeOptions": {"configProperties": {"a": )" + value + "}}}";
}

class DamagedPackage : public LaunchpadTest {
 protected:
  fs::path config() const {
    return at(kClockFolder + std::string("SampleClock.runtimeconfig.json"));
  }
  fs::path assembly() const { return at(kClockFolder + std::string("SampleClock.dll")); }

  // Runs another package's application through the launch pad, damages the clock by `damage`, and
  // launches it. Expects that the clock's launch fails with `message`, and nothing else.
  void expectOnlyTheClockToFail(const std::function<void()>& damage, const std::string& message) {
    start(1);
    { RunningProbe direct(root(), "inhouse"); }
    ASSERT_TRUE(awaitProcesses("ready", 1)) << status() << errors();
    RunningProbe other(root(), "inhouse");
    ASSERT_EQ(served(), 1) << errors();
    damage();
    ASSERT_FALSE(HasFatalFailure() || IsSkipped());
    const CommandResult clock = launch({kClock});
    EXPECT_EQ(clock.status, kNotExecutable);
    EXPECT_THAT(clock.err, HasSubstr(message));
    EXPECT_TRUE(isAlive(launchpad())) << errors();
    EXPECT_EQ(other.quit(), 0) << errors();
    expectToStartAgain();
  }

  // Leaves it so many MiB of address space beside what it uses.
  void limitMemoryOfLaunchpad(rlim_t mebibytes) const {
    std::istringstream sizes(contentOf("/proc/" + std::to_string(launchpad()) + "/statm"));
    rlim_t pages = 0;
    sizes >> pages;
    const rlim_t bytes = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + (mebibytes << 20);
    const rlimit limit{bytes, RLIM_INFINITY};
    ASSERT_EQ(prlimit(launchpad(), RLIMIT_AS, &limit, nullptr), 0);
  }

 private:
  void expectToStartAgain() {
    ASSERT_TRUE(isAlive(launchpad()));
    EXPECT_EQ(control("stop").status, 0);
    EXPECT_EQ(endOfLaunchpad(), 0);
    start(1);
    EXPECT_THAT(status(), HasSubstr("serving"));
  }
};

TEST_F(DamagedPackage, WithNestedSettingsFailsAlone) {
  expectOnlyTheClockToFail(
      [this] { write(config(), configWith(repeated("[", 80'000) + repeated("]", 80'000))); },
      "is nested deeper than 64 levels");
}

// The time to insert a name into an ordered object grows with their number.
TEST_F(DamagedPackage, WithManySettingsFailsAlone) {
  std::string many = "0";
  for (int i = 0; i < 60'000; ++i) {
    many += ", \"" + std::to_string(i) + "\": 0";
  }
  expectOnlyTheClockToFail([&] { write(config(), configWith(many)); }, "has more than 4096 values");
}

void makeSparse(const fs::path& file) {
  constexpr std::uintmax_t kEightTebibytes = std::uintmax_t{8} << 40;
  std::error_code error;
  fs::resize_file(file, kEightTebibytes, error);
  if (error) {
    QUILLON_SKIP("the file system has no files of 8 TiB: " << error.message());
  }
}

TEST_F(DamagedPackage, WithSparseSettingsFailsAlone) {
  expectOnlyTheClockToFail([this] { makeSparse(config()); }, "cannot be read: larger than 1 MiB");
}

TEST_F(DamagedPackage, WithASparseAssemblyFailsAlone) {
  expectOnlyTheClockToFail([this] { makeSparse(assembly()); },
                           "it cannot be read: larger than 256 MiB");
}

TEST_F(DamagedPackage, ForWhoseSettingsMemoryIsMissingIsLaunchedDirectly) {
  if (isSanitized()) {
    GTEST_SKIP() << "the address sanitizer reserves more memory than the limit allows";
  }
  start(1);
  write(config(), configWith('"' + std::string(1'000'000, 'x') + '"'));
  limitMemoryOfLaunchpad(1);
  const CommandResult clock = launch({"--verbose", kClock});
  EXPECT_EQ(clock.status, 0);
  // The whole text contains the settings.
  EXPECT_THAT(clock.err.substr(0, clock.err.find('\n')),
              HasSubstr("the launch pad cannot read its files"));
  EXPECT_TRUE(isAlive(launchpad())) << errors();
  EXPECT_THAT(status(), HasSubstr("serving"));
}

// The launch pad reads it for its fingerprint at each launch.
class DamagedKey : public LaunchpadTest {
 protected:
  fs::path key() const { return at("/opt/usr/share/quillon/config/db/dotnet/velora_api_path"); }
  void expectAPreparedLaunch() {
    start(1);
    prepareFor({"--raw", kClock});
    EXPECT_EQ(launch({kClock}).status, 0);
    EXPECT_EQ(served(), 1) << errors();
  }
};

TEST_F(DamagedKey, ThatIsAFifoDoesNotBlockALaunch) {
  fs::create_directories(key().parent_path());
  ASSERT_EQ(mkfifo(key().c_str(), 0666), 0);
  expectAPreparedLaunch();
}

TEST_F(DamagedKey, ThatIsALinkToADeviceDoesNotBlockALaunch) {
  fs::create_directories(key().parent_path());
  fs::create_symlink("/dev/zero", key());
  expectAPreparedLaunch();
}

}  // namespace
}  // namespace quillon::test
