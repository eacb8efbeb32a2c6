// Launch profiles: when a direct launch records one, and what a damaged or forged one does.
#include "quillon/prefetch/launch_profile.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "tests/system/launch/running_probe.h"
#include "tests/system/launch/sample_device.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr char kAssembly[] = "/opt/usr/apps/org.velora.sample.clock/bin/SampleClock.dll";
constexpr char kFolder[] = "/opt/usr/home/owner/share/dotnet/launch-profiles";

class LaunchProfileOf : public RuntimeTest {
 protected:
  void SetUp() override {
    RuntimeTest::SetUp();
    if (!IsSkipped()) {
      makeDevice();
    }
  }
  fs::path profile() const { return at(kFolder) / kClock; }
  CommandResult launchDirectly() const { return launch({kClock, "--direct"}); }
  void expectRecord() const {
    EXPECT_EQ(launchDirectly().status, 0);
    EXPECT_THAT(contentOf(profile()),
                AllOf(StartsWith("quillon launch profile 1\nfile "), HasSubstr(kAssembly),
                      HasSubstr("/usr/share/dotnet.velora/netcoreapp/libcoreclr.so")));
  }
  fs::path profileOfProbe() const { return at(kFolder) / kProbe; }
  // Launches an application that maps a sparse file and touches the first bytes of it.
  void launchWithMapping(std::uintmax_t size, std::uintmax_t touched) const {
    write(at("/tmp/mapped"), "");
    fs::resize_file(at("/tmp/mapped"), size);
    RunningProbe probe(root(), "inhouse");
    EXPECT_EQ(probe.ask("map /tmp/mapped " + std::to_string(touched)), "0");
    EXPECT_EQ(probe.quit(), 0) << probe.errors();
  }
  CommandResult cache(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(),
                     {fs::path(QUILLON_BUILD_DIRECTORY) / "bin/quillon", "cache"});
    return run(arguments, {"QUILLON_DEVICE=" + root().string()});
  }
};

TEST_F(LaunchProfileOf, ADirectLaunchIsRecordedOnce) {
  expectRecord();
  write(profile(), contentOf(profile()) + "0 1\n");  // a later launch would not write this
  const std::string marked = contentOf(profile());
  EXPECT_EQ(launchDirectly().status, 0);
  EXPECT_EQ(contentOf(profile()), marked);
}

TEST_F(LaunchProfileOf, AnUpdateOfTheApplicationRenewsIt) {
  expectRecord();
  write(profile(), contentOf(profile()) + "0 1\n");
  const std::string marked = contentOf(profile());
  fs::last_write_time(at(kAssembly), fs::file_time_type::clock::now() - std::chrono::hours(1));
  EXPECT_THAT(cache({"show"}).out, HasSubstr("outdated: the application or the runtime"));
  expectRecord();
  EXPECT_NE(contentOf(profile()), marked);
  EXPECT_THAT(cache({"show"}).out, Not(HasSubstr("outdated")));
}

TEST_F(LaunchProfileOf, TheCacheCommandShowsAndClearsIt) {
  expectRecord();
  const std::string file = std::string(kFolder) + '/' + kClock;
  EXPECT_THAT(cache({"show"}).out, HasSubstr(file + ": "));
  const auto shown = nlohmann::json::parse(cache({"show", "--json"}).out);
  ASSERT_EQ(shown.size(), 3U);
  EXPECT_EQ(shown[2]["file"], file);
  EXPECT_EQ(shown[2]["state"], "whole");
  EXPECT_GT(shown[2]["entries"], 5);
  EXPECT_TRUE(shown[2]["outdated"].is_null());
  EXPECT_EQ(cache({"clear"}).status, 0);
  EXPECT_FALSE(fs::exists(profile()));
}

TEST_F(LaunchProfileOf, ADamagedProfileIsReplaced) {
  expectRecord();
  const std::vector<std::function<void()>> damages = {
      [&] { write(profile(), ""); },
      [&] { write(profile(), "quillon launch profile 1\nfile 1 2 /dev/zero\n0 4096\n"); },
      [&] { fs::resize_file(profile(), std::uintmax_t{1} << 40); },
      [&] { fs::permissions(profile(), fs::perms::group_write, fs::perm_options::add); },
      [&] {
        fs::remove(profile());
        ASSERT_EQ(mkfifo(profile().c_str(), 0600), 0);
      },
      [&] {
        fs::remove(profile());
        fs::create_symlink("/dev/zero", profile());
      }};
  for (const auto& damage : damages) {
    damage();
    expectRecord();
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(profile())));
  }
}

TEST_F(LaunchProfileOf, ALaunchThatCannotRecordIsRightAllTheSame) {
  fs::create_directories(at(kFolder).parent_path());
  fs::create_symlink(fresh("elsewhere"), at(kFolder));
  fs::create_directory(fresh("elsewhere"));
  EXPECT_EQ(launchDirectly().status, 0);
  EXPECT_TRUE(fs::is_empty(fresh("elsewhere")));
}

// The kernel has eight bytes about each page of a mapping: 30 GiB for this one.
TEST_F(LaunchProfileOf, ALaunchWithAHugeMappingIsRecorded) {
  launchWithMapping(std::uintmax_t{15} << 40, 0);
  EXPECT_THAT(contentOf(profileOfProbe()),
              HasSubstr("/usr/share/dotnet.velora/netcoreapp/libcoreclr.so"));
}

TEST_F(LaunchProfileOf, ALaunchThatTouchesMoreThanAProfileNamesIsRecordedOnce) {
  constexpr std::uintmax_t kSize = prefetch::kMaxBytes + (std::uintmax_t{8} << 20);
  launchWithMapping(kSize, kSize);
  const std::string recorded = contentOf(profileOfProbe());
  EXPECT_TRUE(prefetch::parseProfile(recorded)) << recorded;
  EXPECT_THAT(recorded, HasSubstr("/tmp/mapped\n"));
  write(profileOfProbe(), recorded + "0 0\n");  // a later launch would not write this
  const std::string marked = contentOf(profileOfProbe());
  {
    RunningProbe probe(root(), "inhouse");
    EXPECT_EQ(probe.quit(), 0);
  }
  EXPECT_EQ(contentOf(profileOfProbe()), marked);
}

}  // namespace
}  // namespace quillon::test
