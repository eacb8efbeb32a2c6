#include "plugin/src/plugin-util/app_identity.h"

#include <gmock/gmock.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>

#include "plugin/src/plugin-util/launch_boost.h"
#include "plugin/src/plugin-util/published_app_id.h"
#include "tests/support/recording_platform.h"
#include "tests/support/temporary_directory.h"
#include "tests/unit/plugin/declared_strings.h"
#include "util/log/error_file.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::IsEmpty;

std::string processName() {
  std::array<char, 16> name{};
  prctl(PR_GET_NAME, name.data());
  return name.data();
}

class AppIdentity : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    g_appID.clear();
    g_execPath.clear();
    KestrelConnectionTryCnt = 0;  // no notice, and therefore no pauses
    earlierName_ = processName();
  }
  void TearDown() override { prctl(PR_SET_NAME, earlierName_.c_str()); }

 private:
  std::string earlierName_;
};

TEST_F(AppIdentity, TakesTheIdentityOverInOrder) {
  _SetAppInfo("org.example.clock", "/usr/bin/env");
  EXPECT_EQ(g_appID, "org.example.clock");
  EXPECT_EQ(g_execPath, "/usr/bin/env");
  EXPECT_EQ(processName(), "DN_xample.clock");
  EXPECT_THAT(
      platform().lines(),
      ElementsAre("4 ### plugin set app info called ###", "4 ### App ID : org.example.clock ###",
                  "4 ### execPath : /usr/bin/env ###", "4 Process Name : DN_xample.clock"));
  for (const LogRecord& record : platform().log) {
    EXPECT_TRUE(record.file() == "plugin-util.cc" || record.file() == "log.h") << record.text;
  }
}

// That an id is published during the assignment is a test of its own (assigned_id_test.cc).
TEST_F(AppIdentity, NoIdIsPublishedAfterTheAssignment) {
  _SetAppInfo("org.example.clock", "/usr/bin/env");
  EXPECT_EQ(publishedAppId(), nullptr);
}

TEST_F(AppIdentity, APublishedIdIsACopyUntilItIsWithdrawn) {
  std::string id(5000, 'i');
  publishAppId(id.c_str());
  id.assign(5000, 'x');
  EXPECT_EQ(publishedAppId(), std::string(99, 'i'));
  withdrawAppId();
  EXPECT_EQ(publishedAppId(), nullptr);
}

TEST_F(AppIdentity, OtherSourceFilesMayDeclareTheStrings) {
  const std::string id(64, 'i');  // longer than a string object can hold
  _SetAppInfo(id, "/usr/bin/env");
  EXPECT_EQ(&declaredAppId(), &g_appID);
  EXPECT_EQ(declaredAppId(), id);
  errorLogFile = "/tmp/error file";
  EXPECT_EQ(&declaredErrorLogFile(), &errorLogFile);
  EXPECT_EQ(declaredErrorLogFile(), "/tmp/error file");
  errorLogFile.clear();
}

const std::string* expectedAtTheEnd = nullptr;

// Runs after all destructors of static objects.
[[gnu::destructor]] void compareAtTheEnd() {
  if (expectedAtTheEnd != nullptr) {
    _exit(*expectedAtTheEnd == g_appID && *expectedAtTheEnd == errorLogFile ? 42 : 43);
  }
}

TEST_F(AppIdentity, TheStringsAreNotDestroyedAtExit) {
  EXPECT_EXIT(
      {
        expectedAtTheEnd = new std::string(64, 'i');
        g_appID = *expectedAtTheEnd;
        errorLogFile = *expectedAtTheEnd;
        exit(0);
      },
      ExitedWithCode(42), "");
}

TEST_F(AppIdentity, TracesEveryOperationByItsSignature) {
  _SetAppInfo("abc", "/usr/bin/env");
  std::vector<std::string> spans;
  for (const std::string& event : platform().trace) {
    spans.push_back(event.substr(event.find(") ") + 2));
  }
  EXPECT_THAT(platform().trace.front(),
              ::testing::MatchesRegex(
                  "begin plugin-util\\.cc\\([0-9]+\\) void _SetAppInfo\\(const std::string&, "
                  "const std::string&\\)"));
  EXPECT_THAT(spans, Contains("void checkExecRunable(const std::string&)"));
  EXPECT_THAT(spans, Contains("bool isAllowedExecPath(const std::string&)"));
  EXPECT_THAT(spans, Contains("void changeProcessName(const std::string&)"));
}

TEST_F(AppIdentity, KeepsARelativePathAsItWasGiven) {
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path("/usr/bin");
  _SetAppInfo("abc", "env");
  std::filesystem::current_path(before);
  EXPECT_EQ(g_execPath, "env");
}

TEST_F(AppIdentity, AnEmptyIdStillPassesTheCheckAndRenames) {
  KestrelConnectionTryCnt = 5;
  _SetAppInfo("", "/usr/bin/env");
  EXPECT_EQ(processName(), "DN_");
  EXPECT_EQ(KestrelConnectionTryCnt, 5);
  EXPECT_THAT(platform().markers, IsEmpty());
}

// A refusal ends the process, so each test runs it in a child that prints its log.
class Refusal : public AppIdentity {
 protected:
  // Runs _SetAppInfo. If it ends the process, prints what it had changed before.
  static void launch(const std::string& path) {
    platform().echo = true;
    atexit([] {
      fprintf(stderr, "at exit: path '%s', name '%s'\n", g_execPath.c_str(), processName().c_str());
    });
    prctl(PR_SET_NAME, "before");
    _SetAppInfo("org.example.clock", path);
    _exit(77);
  }
};

TEST_F(Refusal, OfAMissingFileEndsTheProcessQuietly) {
  EXPECT_EXIT(launch("/usr/no/such/file"), ExitedWithCode(0),
              "6 QUILLON plugin-util.cc: checkExecRunable.*\x1b.31m### Use wrong execPath ###"
              "(.|\n)*at exit: path '', name 'before'");
}

TEST_F(Refusal, OfAFileElsewhereNamesItsAbsolutePath) {
  const TemporaryDirectory folder;
  const std::filesystem::path file = folder.path() / "app.dll";
  std::ofstream(file) << "x";
  EXPECT_EXIT(launch((folder.path() / "." / "app.dll").string()), ExitedWithCode(0),
              "### Not allowed App Path ### = " + std::filesystem::canonical(file).string() +
                  "(.|\n)*at exit: path '', name 'before'");
}

TEST_F(Refusal, SendsTheNoticeFirst) {
  EXPECT_EXIT(
      {
        KestrelConnectionTryCnt = 1;
        KestrelScok = 0;  // open, but counts as no socket
        atexit([] {
          for (const std::string& marker : platform().markers) {
            fprintf(stderr, "marker %s\n", marker.c_str());
          }
        });
        launch("/usr/no/such/file");
      },
      ExitedWithCode(0), "marker kest Client:try connect kestrel");
}

TEST_F(AppIdentity, AllowsThreePrefixesByPlainComparison) {
  for (const char* path : {"/usr/apps/a", "/opt/usr/apps/a", "/opt/share/a", "/usr/"}) {
    EXPECT_TRUE(isAllowedExecPath(path)) << path;
  }
  for (const char* path :
       {"/home/owner/a", "/usr", "/opt/a", "usr/bin/a", "/USR/a", "", "/opt/us"}) {
    EXPECT_FALSE(isAllowedExecPath(path)) << path;
  }
}

TEST_F(AppIdentity, JudgesALinkByItsTarget) {
  const TemporaryDirectory folder;
  std::filesystem::create_symlink("/usr/bin/env", folder.path() / "link");
  checkExecRunable((folder.path() / "link").string());  // returns, because the target is under /usr
  EXPECT_THAT(platform().messages(6), IsEmpty());
}

struct NameCase {
  const char* id;
  const char* name;
};

TEST_F(AppIdentity, NamesTheProcessAfterTheEndOfTheId) {
  for (const NameCase& c : {NameCase{"abc", "DN_abc"}, NameCase{"exactly12chr", "DN_exactly12chr"},
                            NameCase{"Xexactly12chr", "DN_exactly12chr"}, NameCase{"", "DN_"},
                            NameCase{"com.example.weatherapp", "DN_e.weatherapp"}}) {
    changeProcessName(c.id);
    EXPECT_EQ(processName(), c.name);
    EXPECT_EQ(platform().lines().back(), std::string("4 Process Name : ") + c.name);
  }
}

TEST_F(AppIdentity, LogsTheNameOnceTheProcessHasIt) {
  changeProcessName("abc");
  std::vector<std::string> events = platform().events;
  std::erase_if(events,
                [](const std::string& event) { return event.find("DN_abc") == event.npos; });
  EXPECT_THAT(events, ElementsAre("process name DN_abc", "log Process Name : DN_abc"));
}

TEST_F(AppIdentity, PackageIdIsThatOfTheCallingProcess) {
  platform().processes[getpid()] = "org.example";
  EXPECT_EQ(GetLaunchedAppPackageID(), "org.example");
  EXPECT_THAT(platform().lines(), ElementsAre("4 Package ID : org.example"));
  EXPECT_THAT(platform().calls,
              ElementsAre("aul_app_get_pkgid_bypid(" + std::to_string(getpid()) + ", 1024)"));
}

TEST_F(AppIdentity, PackageIdOfAnUnknownProcessIsEmpty) {
  EXPECT_EQ(GetLaunchedAppPackageID(), "");
  EXPECT_THAT(platform().lines(), ElementsAre("4 Package ID : "));
}

TEST_F(AppIdentity, APackageWithAServiceComponentIsAService) {
  platform().packages = {
      {"p", "/r", {}, {{"ui", "", false, {}}, {"service", "", true, {}}, {"ui2", "", false, {}}}}};
  EXPECT_TRUE(isServiceApp("p"));
  EXPECT_THAT(platform().lines(), ElementsAre("4 service is Service application"));
  EXPECT_THAT(platform().calls, Contains("package_info_foreach_app_from_package(p, 0)"));
  EXPECT_THAT(platform().trace, Contains("end").Times(4)) << "one span for each component";
}

TEST_F(AppIdentity, APackageWithoutOneIsNone) {
  platform().packages = {{"p", "/r", {}, {{"ui", "", false, {}}}}};
  EXPECT_FALSE(isServiceApp("p"));
  EXPECT_THAT(platform().lines(), IsEmpty());
}

TEST_F(AppIdentity, AnUnknownPackageIsNoneAndSaysWhy) {
  platform().failures["package_info_create"] = -22;
  EXPECT_FALSE(isServiceApp("nobody"));
  EXPECT_THAT(platform().lines(), ElementsAre("6 package_info_create return error code : -22"));
}

TEST_F(AppIdentity, APackageWithoutARecordIsNoServiceAndLogsCodeZero) {
  platform().packages = {{"p", "/r", {}, {{"service", "", true, {}}}}};
  platform().nullHandles = {"package_info_create"};
  EXPECT_FALSE(isServiceApp("p"));
  EXPECT_THAT(platform().lines(), ElementsAre("6 package_info_create return error code : 0"));
  EXPECT_THAT(platform().calls, ElementsAre("package_info_create(p)"));
}

TEST_F(AppIdentity, AServiceWithoutAnIdIsOneAllTheSame) {
  bool service = false;
  EXPECT_TRUE(_package_info_app_cb(PACKAGE_INFO_APP_COMPONENT_TYPE_SERVICE, nullptr, &service));
  EXPECT_TRUE(service);
  EXPECT_THAT(platform().lines(), ElementsAre("4  is Service application"));
}

TEST_F(AppIdentity, ANameThatTheKernelRefusesIsPassedOverInSilence) {
  platform().failures["PR_SET_NAME"] = -1;
  _SetAppInfo("org.example.clock", "/usr/bin/env");
  EXPECT_EQ(g_execPath, "/usr/bin/env");
  EXPECT_THAT(platform().events, Contains("process name DN_xample.clock"));
  EXPECT_THAT(platform().lines(), ElementsAre("4 ### plugin set app info called ###",
                                              "4 ### App ID : org.example.clock ###",
                                              "4 ### execPath : /usr/bin/env ###"));
}

TEST_F(AppIdentity, TheWalkOverApplicationsNeverStops) {
  bool service = false;
  EXPECT_TRUE(_package_info_app_cb(PACKAGE_INFO_APP_COMPONENT_TYPE_UI, "a", &service));
  EXPECT_FALSE(service);
  EXPECT_TRUE(_package_info_app_cb(PACKAGE_INFO_APP_COMPONENT_TYPE_SERVICE, "b", &service));
  EXPECT_TRUE(service);
  EXPECT_TRUE(_package_info_app_cb(PACKAGE_INFO_APP_COMPONENT_TYPE_SERVICE, "c", nullptr));
}

}  // namespace
}  // namespace quillon::test
