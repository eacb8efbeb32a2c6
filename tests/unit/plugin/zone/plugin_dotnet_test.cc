#include "plugin/src/plugin-dotnet/plugin_dotnet.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "platform/dlog.h"
#include "plugin/src/plugin-util/app_identity.h"
#include "tests/support/skip.h"
#include "tests/unit/plugin/zone/zone_fixture.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

static_assert(std::is_base_of_v<PluginStrategy, PluginDotnet>);
static_assert(sizeof(PluginDotnet) == sizeof(void*), "has no data members");

class Dotnet : public ZoneTest {
 protected:
  // Runs one operation and returns its log, without the lines of the constructor.
  ZoneRun runOn(void (*operation)(PluginDotnet&), const std::string& behaviour = "") {
    return run(
        [operation] {
          PluginDotnet strategy;
          platform().log.clear();
          operation(strategy);
        },
        behaviour);
  }
};

TEST_F(Dotnet, ListsAreThePlatformsLibrariesAndNothingElse) {
  const ZoneRun run = runOn([](PluginDotnet& strategy) {
    const bool right = strategy.GetTPA().empty() && strategy.GetExtraDllPath().empty() &&
                       strategy.GetDllPath() == "/usr/share/dotnet.velora/lib";
    if (!right) {
      exit(1);
    }
  });
  EXPECT_TRUE(run.returned);
  EXPECT_THAT(run.lines, ElementsAre("3 GetDllPath: /usr/share/dotnet.velora/lib"));
}

TEST_F(Dotnet, ConstructionThrowsStaleListsAway) {
  const std::string cache = "opt/usr/home/owner/share/dotnet/TPA.txt";
  write(root_ / cache, "[START]/a.dll[END]");
  EXPECT_TRUE(run([] { PluginDotnet(); }).returned);
  EXPECT_TRUE(std::filesystem::exists(root_ / cache)) << "the flag files agree";
  std::filesystem::remove(root_ / "opt/etc/dotnet_flag.ini");
  EXPECT_TRUE(run([] { PluginDotnet(); }).returned);
  EXPECT_FALSE(std::filesystem::exists(root_ / cache));
}

TEST_F(Dotnet, EveryOperationIsTraced) {
  const ZoneRun run = this->run([] {
    PluginDotnet strategy;
    strategy.Finalize();
    const std::vector<std::string> trace = platform().trace;
    const auto has = [&](const char* name) {
      return std::find_if(trace.begin(), trace.end(), [&](const std::string& entry) {
               return entry.find(name) != std::string::npos;
             }) != trace.end();
    };
    if (!has("PluginDotnet::PluginDotnet()")) {
      exit(1);
    }
    if (!has("virtual void PluginDotnet::Finalize()")) {
      exit(2);
    }
  });
  EXPECT_TRUE(run.returned) << run.status;
}

// Returns the index in the virtual function table that a pointer to a member function contains
// (Itanium C++ ABI).
template <typename Operation>
std::ptrdiff_t slotOf(Operation operation) {
  std::ptrdiff_t offset = 0;
  static_assert(sizeof(operation) == 2 * sizeof(offset));
  std::memcpy(&offset, &operation, sizeof(offset));
  return (offset - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

// Callers that were compiled against an earlier header use the index in the virtual function table.
// The first two entries are the two forms of the destructor.
TEST(Strategy, OperationsKeepTheirPlaces) {
#if defined(__x86_64__) || defined(__i386__)
  EXPECT_EQ(slotOf(&PluginStrategy::Initialize), 2);
  EXPECT_EQ(slotOf(&PluginStrategy::Preload), 3);
  EXPECT_EQ(slotOf(&PluginStrategy::SetAppInfo), 4);
  EXPECT_EQ(slotOf(&PluginStrategy::GetDllPath), 5);
  EXPECT_EQ(slotOf(&PluginStrategy::GetExtraDllPath), 6);
  EXPECT_EQ(slotOf(&PluginStrategy::GetTPA), 7);
  EXPECT_EQ(slotOf(&PluginStrategy::Finalize), 8);
#else
  QUILLON_SKIP("pointers to members of this processor hold the place otherwise");
#endif
}

// The process is already in the zone, so no operation ends it.
TEST_F(Dotnet, TracesItsOperationsBySignature) {
  const ZoneRun run = this->run([] {
    platform().trace.clear();
    PluginDotnet strategy;
    strategy.Initialize();
    strategy.Preload();
    strategy.SetAppInfo("org.example.clock", "/usr/bin/env");
    strategy.GetDllPath();
    strategy.GetExtraDllPath();
    strategy.GetTPA();
    strategy.Finalize();
    std::vector<std::string> own;
    for (const std::string& entry : platform().trace) {
      const std::size_t name = entry.find(") ");
      if (name != std::string::npos && entry.find("PluginDotnet::") != std::string::npos) {
        own.push_back(entry.substr(name + 2));
      }
    }
    platform().log.clear();
    for (const std::string& signature : own) {
      __dlog_print(0, DLOG_DEBUG, "QUILLON", "test: signature(1) > %s", signature.c_str());
    }
  });
  EXPECT_TRUE(run.returned) << run.status;
  EXPECT_THAT(
      run.lines,
      ElementsAre("3 PluginDotnet::PluginDotnet()", "3 virtual void PluginDotnet::Initialize()",
                  "3 virtual void PluginDotnet::Preload()",
                  "3 virtual void PluginDotnet::SetAppInfo(const string&, const string&)",
                  "3 virtual std::string PluginDotnet::GetDllPath()",
                  "3 virtual std::string PluginDotnet::GetExtraDllPath()",
                  "3 virtual std::string PluginDotnet::GetTPA()",
                  "3 virtual void PluginDotnet::Finalize()"));
}

TEST_F(Dotnet, InitializeEntersTheZone) {
  placeLibrary("NOTHING");
  showZone();
  const ZoneRun run = runOn([](PluginDotnet& strategy) { strategy.Initialize(); });
  EXPECT_TRUE(run.returned);
  ASSERT_GE(run.lines.size(), 2U);
  EXPECT_EQ(run.lines[0], "4 ### plugin EnterSecureZone called ###");
  EXPECT_EQ(run.lines[1], "4 ### enterSecureZone() called ###");
  EXPECT_THAT(run.calls, Contains("attach(context)"));
}

TEST_F(Dotnet, PreloadLoadsTheListedLibraries) {
  write(root_ / "usr/bin/dotnet_preload_so_list.txt", "libabsent-of-quillon.so");
  const ZoneRun run = runOn([](PluginDotnet& strategy) { strategy.Preload(); });
  ASSERT_EQ(run.lines.size(), 3U);
  EXPECT_EQ(run.lines[0], "4 ### plugin_preload called ###");
  EXPECT_EQ(run.lines[1], "4 ### preloadSharedLibraries called ###");
  EXPECT_THAT(run.lines[2], HasSubstr("libabsent-of-quillon.so"));
}

TEST_F(Dotnet, OutsideTheZoneSetAppInfoEndsTheLaunch) {
  showZone();
  const ZoneRun run = runOn(
      [](PluginDotnet& strategy) { strategy.SetAppInfo("org.example.clock", "/usr/bin/env"); });
  EXPECT_FALSE(run.returned);
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.lines,
              ElementsAre("4 ### SetAppInfo ###", "3 Host", "6 ### Not in app zone ###"));
}

TEST_F(Dotnet, InTheZoneSetAppInfoAsksForNoPrivilege) {
  const ZoneRun run = runOn([](PluginDotnet& strategy) {
    strategy.SetAppInfo("org.example.clock", "/usr/bin/env");
    if (g_appID != "org.example.clock" || g_execPath != "/usr/bin/env") {
      exit(1);
    }
  });
  EXPECT_TRUE(run.returned) << run.status;
  EXPECT_THAT(run.lines, Contains("4 Process Name : DN_xample.clock"));
  EXPECT_THAT(run.lines, Not(Contains(HasSubstr("rivilege"))));
}

class HybridAot : public Dotnet {
 protected:
  // Announces the application "org.example.clock" `times` times.
  ZoneRun announce(bool service, int times = 1) {
    return run([service, times] {
      platform().packages[0].applications = {{"org.example.clock", "/x", service, {}}};
      g_appID = "org.example.clock";
      PluginDotnet strategy;
      platform().log.clear();
      for (int time = 0; time < times; ++time) {
        strategy.SendAppInfoToHybridAOTManager();
      }
    });
  }

  [[nodiscard]] std::vector<std::string> markers() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(root_ / "tmp/hybridAOT")) {
      names.push_back(entry.path().filename());
    }
    return names;
  }
};

TEST_F(HybridAot, TheMarkersNameIsTheMessage) {
  std::filesystem::create_directory(root_ / "tmp/hybridAOT");
  const ZoneRun run = announce(false);
  ASSERT_EQ(markers().size(), 1U);
  const std::string marker = markers()[0];
  EXPECT_THAT(marker, ::testing::MatchesRegex(
                          "\\[AppLaunched\\]org\\.example:org\\.example\\.clock:[0-9]+:"));
  EXPECT_THAT(run.lines, ElementsAre("4 Package ID : org.example",
                                     "4 SendAppInfoToHybridAOTManager : /tmp/hybridAOT/" + marker));
  struct stat status {};
  ASSERT_EQ(::stat((root_ / "tmp/hybridAOT" / marker).c_str(), &status), 0);
  const mode_t mask = ::umask(0);
  ::umask(mask);
  EXPECT_EQ(status.st_mode, S_IFDIR | (0775 & ~mask));
}

TEST_F(HybridAot, TheSecondMarkerOfAProcessFails) {
  std::filesystem::create_directory(root_ / "tmp/hybridAOT");
  const ZoneRun run = announce(false, 2);
  EXPECT_EQ(run.lines.back(), "6 Error creating directory!n");
  EXPECT_EQ(markers().size(), 1U);
}

TEST_F(HybridAot, TheParentFolderIsNotMade) {
  EXPECT_EQ(announce(false).lines.back(), "6 Error creating directory!n");
  EXPECT_FALSE(std::filesystem::exists(root_ / "tmp/hybridAOT"));
}

TEST_F(HybridAot, ServiceApplicationsAreNotAnnounced) {
  std::filesystem::create_directory(root_ / "tmp/hybridAOT");
  const ZoneRun run = announce(true);
  EXPECT_THAT(run.lines, ElementsAre("4 Package ID : org.example",
                                     "4 org.example.clock is Service application",
                                     "6 org.example is Service application, Cancel "
                                     "SendAppInfoToHybridAOTManager()"));
  EXPECT_THAT(markers(), IsEmpty());
}

}  // namespace
}  // namespace quillon::test
