// Tests of the services of a launch: certificates, GC tracer, object tracker, debugger pipes.
#include "plugin/src/quillon-tv-plugin/launch_services.h"

#include <dirent.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

#include "plugin/src/quillon-tv-plugin/process_state.h"
#include "quillon_tv_plugin.h"
#include "tests/system/strategies/device_test.h"

namespace {

// A directory that opendir(3) fails to open. Every user of the tests can open the real directories
// of the device.
std::string unreadable;

}  // namespace

// Replaces the function of the C library.
extern "C" DIR* opendir(const char* path) {
  static const auto next = reinterpret_cast<decltype(&opendir)>(dlsym(RTLD_NEXT, "opendir"));
  if (unreadable == path) {
    errno = EACCES;
    return nullptr;
  }
  return next(path);
}

namespace quillon::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace fs = std::filesystem;

constexpr char kUpdated[] = "/opt/data/cert/zqca.pem";
constexpr char kFromPlatform[] = "/usr/share/cert/zqca.pem";
constexpr char kOptIn[] = "/opt/usr/home/owner/share/gctracer/";
constexpr char kMarker[] = "/opt/usr/home/owner/share/ObjectTracker/OT_Installed";
constexpr char kKey[] = "db/menu/glade_port/homedatacontrol/defaultdisclaimeragree";

std::vector<std::string> asked;
std::vector<std::string> managedCalls;
int status = 0;
bool offersFunctions = true;

void activate(const char* appId) { managedCalls.push_back(std::string("activate ") + appId); }
void serve() { managedCalls.emplace_back("serve"); }

int createDelegate(void* host, unsigned int domain, const char* assembly, const char* type,
                   const char* method, void** delegate) {
  EXPECT_EQ(host, &status);
  EXPECT_EQ(domain, 5U);
  EXPECT_EQ(std::string(assembly) + "/" + type, "Preload/Velora.Preload");
  asked.emplace_back(method);
  const bool tracer = asked.back() == "ActivateGCTracer";
  *delegate = !offersFunctions ? nullptr
              : tracer         ? reinterpret_cast<void*>(activate)
                               : reinterpret_cast<void*>(serve);
  return status;
}

class LaunchServices : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    if (IsSkipped()) {
      return;
    }
    asked.clear();
    managedCalls.clear();
    status = 0;
    offersFunctions = true;
    tvPluginMgr = nullptr;
    m_hostHandle = &status;
    m_domainId = 5;
    m_createDelegate = createDelegate;
    for (const auto& entry : fs::directory_iterator("/tmp")) {
      if (entry.path().filename().string().find("debug-pipe") != std::string::npos) {
        fs::remove(entry.path());
      }
    }
  }
  static std::string pipe(const std::string& suffix = "-1-in") {
    return "/tmp/clr-debug-pipe-" + std::to_string(getpid()) + suffix;
  }
};

TEST_F(LaunchServices, UpdatedCertificatesArePreferred) {
  makeFile(kUpdated);
  setenv("SSL_CERT_FILE", "/elsewhere", 1);
  setCetificationFile();
  EXPECT_STREQ(getenv("SSL_CERT_FILE"), kUpdated);
  EXPECT_THAT(platform().lines(), ElementsAre(std::string("3 Use ") + kUpdated));
  EXPECT_THAT(platform().trace.front(), ::testing::EndsWith(") void setCetificationFile()"));
}

TEST_F(LaunchServices, WithoutThemThePlatformsAreNamedEvenIfMissing) {
  ASSERT_FALSE(fs::exists(kFromPlatform));
  setenv("SSL_CERT_FILE", "/elsewhere", 1);
  setCetificationFile();
  EXPECT_STREQ(getenv("SSL_CERT_FILE"), kFromPlatform);
  EXPECT_THAT(platform().lines(), ElementsAre(std::string("3 Use ") + kFromPlatform));
}

TEST_F(LaunchServices, ADanglingLinkIsNoCertificate) {
  fs::create_directories("/opt/data/cert");
  fs::create_symlink("/nowhere", kUpdated);
  setCetificationFile();
  EXPECT_STREQ(getenv("SSL_CERT_FILE"), kFromPlatform);
}

TEST_F(LaunchServices, NoOptInDirectoryAllowsNobody) {
  EXPECT_FALSE(IsAllowedToActivateGCTracer("org.example.app"));
  EXPECT_THAT(platform().lines(), ElementsAre("3 IsAllowedToActivateGCTracer : false"));
}

TEST_F(LaunchServices, AnOptInThatIsNoDirectoryAllowsNobody) {
  makeFile("/opt/usr/home/owner/share/gctracer");
  EXPECT_FALSE(IsAllowedToActivateGCTracer(""));
  EXPECT_THAT(platform().lines(), ElementsAre("3 IsAllowedToActivateGCTracer : false"));
}

TEST_F(LaunchServices, AnEmptyOptInDirectoryAllowsNobody) {
  fs::create_directories(kOptIn);
  EXPECT_FALSE(IsAllowedToActivateGCTracer(""));
  EXPECT_FALSE(IsAllowedToActivateGCTracer("gctracer"));
}

TEST_F(LaunchServices, AnEntryOfTheIdsNameOptsIn) {
  makeFile(std::string(kOptIn) + "org.example.app");
  EXPECT_TRUE(IsAllowedToActivateGCTracer("org.example.app"));
  EXPECT_THAT(
      platform().lines(),
      ElementsAre("4 IsAllowedToActivateGCTracer : true - org.example.app org.example.app"));
  EXPECT_FALSE(IsAllowedToActivateGCTracer("org.example.app.other"));
  EXPECT_FALSE(IsAllowedToActivateGCTracer("ORG.example.app"));
}

TEST_F(LaunchServices, TheIdOfAnotherApplicationOptsInThoseWhoseIdItContains) {
  makeFile(std::string(kOptIn) + "x.org.example.app.debug");
  EXPECT_TRUE(IsAllowedToActivateGCTracer("org.example.app"));
  EXPECT_THAT(platform().lines(), ElementsAre("4 IsAllowedToActivateGCTracer : true - "
                                              "x.org.example.app.debug org.example.app"));
}

TEST_F(LaunchServices, AnEmptyIdMatchesAnyEntry) {
  makeFile(std::string(kOptIn) + "anything");
  EXPECT_TRUE(IsAllowedToActivateGCTracer(""));
}

TEST_F(LaunchServices, FoldersAndLinksAreEntriesButTheirContentIsNot) {
  makeFile(std::string(kOptIn) + "folder/inner.app");
  fs::create_symlink("/nowhere", std::string(kOptIn) + "link.app");
  EXPECT_TRUE(IsAllowedToActivateGCTracer("folder"));
  EXPECT_TRUE(IsAllowedToActivateGCTracer("link.app"));
  EXPECT_FALSE(IsAllowedToActivateGCTracer("inner.app"));
}

TEST_F(LaunchServices, TheTracerGetsTheId) {
  ActivateGCTracer("org.example.app");
  EXPECT_THAT(asked, ElementsAre("ActivateGCTracer"));
  EXPECT_THAT(managedCalls, ElementsAre("activate org.example.app"));
  EXPECT_THAT(platform().markers, ElementsAre("[quillon-tv-plugin] Activate GC Tracer"));
  EXPECT_THAT(platform().lines(), ElementsAre("4 [quillon-tv-plugin] Activate GC Tracer"));
}

TEST_F(LaunchServices, AFailedDelegateIsSilent) {
  for (const bool function : {true, false}) {
    offersFunctions = function;
    status = function ? -1 : 0;
    ActivateGCTracer("app");
    CallFunctionForOT();
  }
  m_createDelegate = nullptr;
  ActivateGCTracer("app");
  CallFunctionForOT();
  EXPECT_THAT(managedCalls, IsEmpty());
  EXPECT_THAT(platform().messages(6), IsEmpty());
}

TEST_F(LaunchServices, SetAppInfoActivatesTheTracerOfAnAllowedApplicationOnly) {
  makeFile(std::string(kOptIn) + "org.example.app");
  plugin_set_app_info("org.example.other", "");
  EXPECT_THAT(managedCalls, IsEmpty());
  plugin_set_app_info("org.example.app", "");
  EXPECT_THAT(managedCalls, ElementsAre("activate org.example.app"));
}

TEST_F(LaunchServices, TheObjectTrackerIsStartedIfItsMarkerExists) {
  makeFile(kMarker);
  plugin_set_coreclr_info(&status, 5, createDelegate);
  EXPECT_THAT(managedCalls, ElementsAre("serve"));
  EXPECT_THAT(platform().lines(),
              ElementsAre("4 [quillon-tv-plugin] plugin_set_coreclr_info",
                          "4 [quillon-tv-plugin] OT is Installed. Start Server for OT.",
                          "3 handleDebugPipe called!!"));
  EXPECT_THAT(platform().markers, ElementsAre("[quillon-tv-plugin] plugin_set_coreclr_info"));
}

TEST_F(LaunchServices, WithoutTheMarkerOnlyThePipesAreLabelled) {
  makeFile(pipe());
  plugin_set_coreclr_info(&status, 5, createDelegate);
  EXPECT_THAT(asked, IsEmpty());
  EXPECT_THAT(platform().calls, ElementsAre(std::string("vconf_notify_key_changed(") + kKey + ")",
                                            "smack_setlabel(" + pipe() + ", *, 0)"));
}

TEST_F(LaunchServices, OnlyThePipesOfThisProcessAreLabelled) {
  makeFile(pipe("-1-in"));
  makeFile(pipe("-1-out"));
  makeFile(pipe("4-1-in"));
  makeFile("/tmp/x-clr-debug-pipe-" + std::to_string(getpid()) + "-y");
  makeFile("/tmp/dotnet-diagnostic-" + std::to_string(getpid()) + "-1-socket");
  handleDebugPipe();
  EXPECT_THAT(
      platform().labels,
      ::testing::UnorderedElementsAre(
          ::testing::Pair(pipe("-1-in"), "*"), ::testing::Pair(pipe("-1-out"), "*"),
          ::testing::Pair("/tmp/x-clr-debug-pipe-" + std::to_string(getpid()) + "-y", "*")));
  EXPECT_THAT(platform().lines(), ElementsAre("3 handleDebugPipe called!!"));
}

TEST_F(LaunchServices, APipeThatCannotBeLabelledIsNamed) {
  makeFile(pipe());
  makeFile(pipe("-2-in"));
  platform().failures["smack_setlabel"] = -1;
  handleDebugPipe();
  EXPECT_THAT(platform().messages(6),
              ::testing::UnorderedElementsAre("Fail to setxattr (" + pipe() + ")",
                                              "Fail to setxattr (" + pipe("-2-in") + ")"));
}

TEST_F(LaunchServices, AFolderOfPipesThatCannotBeReadIsPassedOver) {
  makeFile(pipe());
  unreadable = "/tmp";
  handleDebugPipe();
  unreadable.clear();
  EXPECT_THAT(platform().lines(), ElementsAre("3 handleDebugPipe called!!"));
  EXPECT_THAT(platform().calls, IsEmpty());
}

}  // namespace
}  // namespace quillon::test
