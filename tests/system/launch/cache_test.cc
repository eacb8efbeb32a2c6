// The plug-in's cached lists when the packages and the framework of a device root change.
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "tests/system/launch/sample_device.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

constexpr char kCaches[] = "/opt/usr/home/owner/share/dotnet/";
constexpr char kCalendar[] = "/opt/usr/apps/org.velora.sample.calendar/shared/res/";

class CachedListsOf : public LaunchTest {
 protected:
  void SetUp() override {
    LaunchTest::SetUp();
    if (!IsSkipped()) {
      makeDevice("none");
      write(at("/usr/share/dotnet.velora/framework/Some.dll"), "");
    }
  }
  CommandResult quillon(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), fs::path(QUILLON_BUILD_DIRECTORY) / "bin/quillon");
    return run(arguments, {"QUILLON_DEVICE=" + root().string()});
  }
  nlohmann::json plan() const {
    return nlohmann::json::parse(launchCaptured({kClock, "--plan", "--json"}).out);
  }
  // Fills the caches by a plan, which makes the lists as a launch does.
  void fill() const {
    plan();
    ASSERT_TRUE(fs::exists(at(std::string(kCaches) + "TPA.txt")));
    ASSERT_TRUE(fs::exists(at(std::string(kCaches) + "CoBA.txt")));
  }
  void installCalendar() const {
    const CommandResult installed = quillon(
        {"package", "install",
         fs::path(QUILLON_BUILD_DIRECTORY) / "managed/packages/org.velora.sample.calendar.toml"});
    ASSERT_EQ(installed.status, 0) << installed.err;
  }
  bool isCached(const char* name) const { return fs::exists(at(std::string(kCaches) + name)); }
  // Moves the time of the caches back, as if they were made by an older program.
  void age() const {
    for (const char* name : {"TPA.txt", "CoBA.txt"}) {
      fs::last_write_time(at(std::string(kCaches) + name),
                          fs::file_time_type::clock::now() - std::chrono::hours(1));
    }
  }
};

TEST_F(CachedListsOf, AnInstallationIsInTheNextLaunch) {
  ASSERT_EQ(quillon({"package", "remove", "org.velora.sample.calendar"}).status, 0);
  fill();
  EXPECT_THAT(plan()["sharedDirectories"], IsEmpty());
  installCalendar();
  EXPECT_THAT(plan()["sharedDirectories"], Contains(kCalendar));
}

TEST_F(CachedListsOf, ARemovalIsInTheNextLaunch) {
  fill();
  EXPECT_THAT(plan()["sharedDirectories"], Contains(kCalendar));
  ASSERT_EQ(quillon({"package", "remove", "org.velora.sample.calendar"}).status, 0);
  EXPECT_THAT(plan()["sharedDirectories"], IsEmpty());
}

TEST_F(CachedListsOf, AnotherFrameworkIsInTheNextLaunch) {
  fill();
  const fs::path framework = fresh("framework");
  write(framework / "libcoreclr.so", "");
  write(framework / "Other.dll", "");
  fs::last_write_time(framework, fs::file_time_type::clock::now() - std::chrono::hours(9));
  ASSERT_EQ(quillon({"device", "init", root(), "--framework", framework}).status, 0);
  EXPECT_THAT(plan()["properties"]["TRUSTED_PLATFORM_ASSEMBLIES"].get<std::string>(),
              HasSubstr("/usr/share/dotnet.velora/netcoreapp/Other.dll"));
}

TEST_F(CachedListsOf, ThePlanSaysWhichListsCameFromTheCache) {
  EXPECT_EQ(plan()["caches"]["trusted"]["used"], false);
  const auto second = plan();
  EXPECT_EQ(second["caches"]["trusted"]["used"], true);
  EXPECT_EQ(second["caches"]["shared"]["used"], true);
  EXPECT_EQ(second["caches"]["shared"]["file"], std::string(kCaches) + "CoBA.txt");
  EXPECT_THAT(second["warnings"], IsEmpty());
  const std::string text = launchCaptured({kClock, "--plan"}).out;
  EXPECT_THAT(
      text,
      HasSubstr("from the plug-in, out of its cache /opt/usr/home/owner/share/dotnet/TPA.txt\n"));
  EXPECT_THAT(
      text,
      HasSubstr("from the plug-in, out of its cache /opt/usr/home/owner/share/dotnet/CoBA.txt\n"));
}

TEST_F(CachedListsOf, ThePlanWarnsOfListsThatAreOlderThanWhatTheyList) {
  fill();
  age();
  const auto warnings = plan()["warnings"];
  ASSERT_THAT(warnings, SizeIs(2));
  EXPECT_THAT(
      warnings[0]["what"].get<std::string>(),
      AllOf(HasSubstr("TPA.txt' is older than what it lists"), HasSubstr("has changed since")));
  EXPECT_EQ(warnings[1]["remedy"], "remove it: quillon cache clear");
  const CommandResult text = launchCaptured({kClock, "--plan"});
  EXPECT_THAT(text.out, HasSubstr("\nwarnings\n  the cached list '"));
  EXPECT_THAT(text.err, HasSubstr("quillon: the cached list '"));
  EXPECT_EQ(quillon({"cache", "clear"}).status, 0);
  EXPECT_THAT(plan()["warnings"], IsEmpty());
}

TEST_F(CachedListsOf, TheCommandShowsAndClearsThem) {
  EXPECT_THAT(quillon({"cache", "show"}).out,
              HasSubstr("TPA.txt: absent; the next launch makes it\n"));
  fill();
  EXPECT_THAT(quillon({"cache", "show"}).out, AllOf(HasSubstr(" assemblies, current\n"),
                                                    HasSubstr("CoBA.txt: 1 folders, current\n")));
  age();
  const auto shown = nlohmann::json::parse(quillon({"cache", "show", "--json"}).out);
  ASSERT_THAT(shown, SizeIs(2));
  EXPECT_EQ(shown[0]["state"], "whole");
  EXPECT_EQ(shown[1]["entries"], 1);
  EXPECT_THAT(shown[0]["outdated"].get<std::string>(), HasSubstr("has changed since"));
  EXPECT_EQ(quillon({"cache", "clear"}).status, 0);
  EXPECT_FALSE(isCached("TPA.txt"));
  EXPECT_FALSE(isCached("CoBA.txt"));
  write(at(std::string(kCaches) + "TPA.txt"), "[START]");
  EXPECT_THAT(quillon({"cache", "show"}).out,
              HasSubstr("TPA.txt: torn; the next launch makes it\n"));
}

// The same with an application that runs.
class CachedListsOfALaunch : public RuntimeTest {};

TEST_F(CachedListsOfALaunch, AreMadeAgainForANewPackage) {
  makeDevice();
  const fs::path build = QUILLON_BUILD_DIRECTORY;
  const auto package = [&](const char* action, const std::string& name) {
    return run({build / "bin/quillon", "package", action, "--device", root(), name}).status;
  };
  ASSERT_EQ(package("remove", "org.velora.sample.calendar"), 0);
  EXPECT_THAT(launch({kClock}).out, Not(HasSubstr("assembly Velora.Sample.Calendar: /")));
  ASSERT_EQ(package("install", build / "managed/packages/org.velora.sample.calendar.toml"), 0);
  const CommandResult launched = launch({kClock});
  EXPECT_EQ(launched.status, 0) << launched.err;
  EXPECT_THAT(launched.out, HasSubstr("assembly Velora.Sample.Calendar: /opt/usr/apps/"));
}

// The folder may belong to another user of the machine.
TEST_F(CachedListsOf, ClearingFollowsNoLinkOutOfTheDeviceRoot) {
  const fs::path elsewhere = fresh("elsewhere");
  write(elsewhere / "TPA.txt", "[START][END]");
  fs::remove_all(at("/opt/usr/home/owner/share/dotnet"));
  fs::create_symlink(elsewhere, at("/opt/usr/home/owner/share/dotnet"));
  const CommandResult made = quillon({"device", "init", root(), "--framework", "none"});
  EXPECT_EQ(made.status, 112);
  EXPECT_THAT(made.err, HasSubstr("cannot remove the cached lists in '"));
  EXPECT_TRUE(fs::exists(elsewhere / "TPA.txt"));
}

}  // namespace
}  // namespace quillon::test
