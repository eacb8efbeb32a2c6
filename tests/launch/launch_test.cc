// Launches of the sample application through the built plug-in, to its end.
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <signal.h>

#include <sstream>

#include "tests/launch/running_probe.h"
#include "tests/launch/sample_device.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

class Launch : public RuntimeTest {
 protected:
  void SetUp() override {
    RuntimeTest::SetUp();
    if (!IsSkipped()) makeDevice();
  }
};

// "name: value" of the sample's output; "(no such line)" where it printed none.
std::string valueOf(const Ending& ending, const std::string& name) {
  const std::string start = "\n" + name + ": ";
  const std::string text = "\n" + ending.out;
  const size_t found = text.find(start);
  if (found == std::string::npos) return "(no such line)";
  const size_t begin = found + start.size();
  return text.substr(begin, text.find('\n', begin) - begin);
}

size_t count(const std::string& text, const std::string& part) {
  size_t times = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++times;
  return times;
}

TEST_F(Launch, LoadsEachAssemblyFromTheDevicePathItBelongsTo) {
  const Ending ending = launch({kClock});
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_EQ(valueOf(ending, "assembly System.Private.CoreLib"),
            "/usr/share/dotnet.velora/netcoreapp/System.Private.CoreLib.dll");
  EXPECT_EQ(valueOf(ending, "assembly System.Runtime"),
            "/usr/share/dotnet.velora/netcoreapp/System.Runtime.dll");
  EXPECT_EQ(valueOf(ending, "assembly SampleClock"),
            "/opt/usr/apps/org.velora.sample.clock/bin/SampleClock.dll");
  EXPECT_EQ(valueOf(ending, "assembly Velora.Sample.Calendar"),
            "/opt/usr/apps/org.velora.sample.calendar/shared/res/Velora.Sample.Calendar.dll");
  EXPECT_THAT(valueOf(ending, "assembly Velora.Sample.Moon"),
              MatchesRegex("/proc/self/fd/[0-9]+/Velora.Sample.Moon.dll"));
}

// Whether the application's process has the runtime's trace provider, for which a library stands
// that can be loaded on any machine.
class TraceProvider : public RuntimeTest {
 protected:
  static constexpr char kProvider[] = "libcoreclrtraceptprovider.so";

  void SetUp() override {
    RuntimeTest::SetUp();
    if (IsSkipped()) return;
    const fs::path framework = frameworkWithout(kProvider);
    fs::copy_file(fs::path(QUILLON_BUILD_DIRECTORY) / "lib/libpreload-sample-one.so",
                  framework / kProvider);
    makeDevice(framework);
  }
  bool isLoadedWith(const std::string& variable) const {
    const RunningProbe probe(root(), "inhouse", {"QUILLON_LOG=none", variable});
    return contentOf("/proc/" + std::to_string(probe.pid()) + "/maps").find(kProvider) !=
           std::string::npos;
  }
};

TEST_F(TraceProvider, IsLoadedWhereEventsAreAskedFor) {
  EXPECT_FALSE(isLoadedWith("QUILLON_UNRELATED=1"));
  EXPECT_TRUE(isLoadedWith("DOTNET_EnableEventLog=1"));
  EXPECT_TRUE(isLoadedWith("DOTNET_LTTng=1"));
}

TEST_F(Launch, NamesTheProcessAfterTheApplication) {
  const Ending ending = launch({kClock});
  EXPECT_EQ(valueOf(ending, "application"), kClock);
  EXPECT_EQ(valueOf(ending, "process name"), "DN_sample.clock");
}

TEST_F(Launch, TakesTheTrustedListFromTheCacheTheSecondTime) {
  const auto log = [&](const char* name) { return fresh(name).string(); };
  ASSERT_EQ(launch({kClock}, {"QUILLON_LOG=json:" + log("first")}).status, 0);
  ASSERT_EQ(launch({kClock}, {"QUILLON_LOG=json:" + log("second")}).status, 0);
  EXPECT_THAT(contentOf(log("first")), HasSubstr("[quillon-tv-plugin] Get TPA by searching."));
  EXPECT_THAT(contentOf(log("first")), Not(HasSubstr("Get TPA by cache file")));
  EXPECT_THAT(contentOf(log("second")), HasSubstr("[quillon-tv-plugin] Get TPA by cache file"));
  EXPECT_THAT(contentOf(log("second")), Not(HasSubstr("Get TPA by searching.")));
}

TEST_F(Launch, EndsWithTheApplicationsExitStatus) {
  EXPECT_EQ(launch({kClock, "--", "--exit", "7"}).status, 7);
  EXPECT_EQ(launch({kClock, "--", "--exit", "0"}).status, 0);
  EXPECT_EQ(launch({kClock, "--", "--exit", "9", "--exit-at-once"}).status, 9);
}

TEST_F(Launch, SaysNothingOfItsOwnWhenAllIsWell) {
  EXPECT_EQ(launch({kClock, "--", "--exit", "9", "--exit-at-once"}).err, "");
  EXPECT_EQ(launch({kClock}).err, "");
}

TEST_F(Launch, PassesArgumentsUntouched) {
  const Ending ending = launch({kClock, "--", "--plan", "[x,y]", "--", "--json", "\u00e4"});
  EXPECT_EQ(valueOf(ending, "arguments"), "--plan [x,y] -- --json \u00e4");
}

TEST_F(Launch, FindsSatelliteResources) {
  EXPECT_EQ(valueOf(launch({kClock}), "greeting"), "Good day");
  const Ending french = launch({kClock, "--", "--culture", "fr"});
  EXPECT_EQ(valueOf(french, "greeting"), "Bonjour");
  EXPECT_EQ(valueOf(french, "assembly SampleClock.resources"),
            "/opt/usr/apps/org.velora.sample.clock/bin/fr/SampleClock.resources.dll");
  EXPECT_EQ(valueOf(launch({kClock, "--", "--culture", "de"}), "greeting"), "Guten Tag");
}

TEST_F(Launch, PassesTheApplicationsOwnSettingsOn) {
  const Ending ending = launch({kClock, "--", "--property", "Velora.Sample.Clock.Face"});
  EXPECT_EQ(valueOf(ending, "property Velora.Sample.Clock.Face"), "round");
}

TEST_F(Launch, TellsTheApplicationItsBaseDirectory) {
  EXPECT_EQ(valueOf(launch({kClock}), "base directory"),
            "/opt/usr/apps/org.velora.sample.clock/bin/");
}

TEST_F(Launch, PreparesTheProcessOnlyWhenAsked) {
  const std::string preload = "assembly Preload";
  EXPECT_EQ(valueOf(launch({kClock}), preload), "(no such line)");
  const Ending prepared = launch({kClock, "--preload", "--", "--exit", "5"});
  EXPECT_EQ(prepared.status, 5);
  EXPECT_EQ(valueOf(prepared, preload), "/usr/share/dotnet.velora/framework/Preload.dll");
}

TEST_F(Launch, EndsWithSigabrtOnAnExceptionNobodyCatches) {
  const Ending ending = launch({kClock, "--", "--throw"});
  EXPECT_EQ(ending.status, 128 + SIGABRT);
  EXPECT_THAT(ending.err, HasSubstr("System.InvalidOperationException: asked to fail"));
}

TEST_F(Launch, LoadsOnePathForANameThatTwoFilesHave) {
  const fs::path calendar =
      at("/opt/usr/apps/org.velora.sample.calendar/shared/res/Velora.Sample.Calendar.dll");
  fs::copy(calendar, at("/usr/share/dotnet.velora/framework/velora.sample.calendar.dll"));
  fs::copy(calendar, at("/opt/usr/apps/org.velora.sample.clock/bin/Velora.Sample.Calendar.dll"));
  const Ending ending = launch({kClock});
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_EQ(valueOf(ending, "assembly Velora.Sample.Calendar"),
            "/usr/share/dotnet.velora/framework/velora.sample.calendar.dll");
  EXPECT_EQ(count(ending.out, "assembly Velora.Sample.Calendar:"), 1u);

  const auto plan = nlohmann::json::parse(launch({kClock, "--plan", "--json"}).out);
  std::vector<std::string> losers;
  for (const auto& shadow : plan["shadowed"]) {
    EXPECT_EQ(shadow["lostTo"], "/usr/share/dotnet.velora/framework/velora.sample.calendar.dll");
    losers.push_back(shadow["path"]);
  }
  EXPECT_THAT(losers,
              ::testing::UnorderedElementsAre(
                  "/opt/usr/apps/org.velora.sample.calendar/shared/res/Velora.Sample.Calendar.dll",
                  "/opt/usr/apps/org.velora.sample.clock/bin/Velora.Sample.Calendar.dll"));
}

TEST_F(Launch, LeavesOutWhatWouldMakeTheRuntimeRefuseTheWholeList) {
  // A native image to the plug-in, by its name, and nothing that the runtime takes.
  write(at("/usr/share/dotnet.velora/framework/odd.ni.abc"), "");
  const Ending ending = launch({kClock, "--", "--exit", "4"});
  EXPECT_EQ(ending.status, 4) << ending.err;
  const auto plan = nlohmann::json::parse(launch({kClock, "--plan", "--json"}).out);
  EXPECT_EQ(plan["leftOut"][0]["path"], "/usr/share/dotnet.velora/framework/odd.ni.abc");
}

TEST_F(Launch, GoesOnWithoutAPackageThatIsRequiredAndMissing) {
  fs::remove_all(at("/opt/usr/apps/org.velora.sample.moon/shared"));
  const Ending ending = launch({kClock, "--", "--exit", "6"});
  EXPECT_EQ(ending.status, 6);
  EXPECT_THAT(valueOf(ending, "age of the moon"), HasSubstr("unavailable"));
}

TEST_F(Launch, ShowsThePlanBeforeLaunchingWhenVerbose) {
  const Ending ending = launch({kClock, "--verbose", "--", "--exit", "2"});
  EXPECT_EQ(ending.status, 2);
  EXPECT_THAT(ending.err, HasSubstr("plugin_set_coreclr_info()"));
  EXPECT_THAT(ending.out, Not(HasSubstr("plugin_set_coreclr_info()")));
}

// What the log holds of an application's standard output.
std::string loggedOutput(const fs::path& log) {
  std::string output;
  std::istringstream lines(contentOf(log));
  for (std::string line; std::getline(lines, line);) {
    const std::string text = nlohmann::json::parse(line)["text"];
    if (text.find(" stdOutRedirect(") == std::string::npos) continue;
    const size_t begin = text.find("\x1b[0m") + 4;
    output += text.substr(begin, text.rfind("\x1b[0m") - begin) + "\n";
  }
  return output;
}

TEST_F(Launch, LogsWhatTheApplicationPrintsToTheLastLine) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{kClock, "--", "--exit", "3"},
        std::vector<std::string>{kClock, "--", "--exit", "3", "--exit-at-once"}}) {
    const fs::path log = fresh("log" + std::to_string(arguments.size()));
    const Ending captured = launchCaptured(arguments, {"QUILLON_LOG=json:" + log.string()});
    EXPECT_EQ(captured.status, 3);
    EXPECT_EQ(captured.out, "");
    EXPECT_EQ(captured.err, "");
    EXPECT_EQ(loggedOutput(log), launch(arguments).out);
  }
}

TEST_F(Launch, LogsAnExceptionNobodyCatchesBeforeTheProcessEnds) {
  const fs::path log = fresh("log");
  launchCaptured({kClock, "--", "--throw"}, {"QUILLON_LOG=json:" + log.string()});
  EXPECT_THAT(contentOf(log), HasSubstr("System.InvalidOperationException: asked to fail"));
  bool found = false;
  for (const auto& entry : fs::directory_iterator(at("/tmp"))) {
    if (entry.path().filename().string().rfind("dotnet_error.", 0) != 0) continue;
    found = true;
    EXPECT_THAT(contentOf(entry), HasSubstr("System.InvalidOperationException: asked to fail"));
  }
  EXPECT_TRUE(found);
}

TEST_F(Launch, ShowsCapturedOutputOnTheTerminalWhenNoLogIsChosen) {
  const Ending ending = launchCaptured({kClock}, {});
  EXPECT_EQ(ending.status, 0);
  EXPECT_EQ(ending.out, "");
  EXPECT_THAT(ending.err, HasSubstr("stdOutRedirect("));
  EXPECT_THAT(ending.err, HasSubstr("greeting: Good day\n"));
  EXPECT_THAT(ending.err, Not(HasSubstr("DotNETLog")));
}

TEST_F(Launch, AsksForNoLogControlWhenRaw) {
  const fs::path log = fresh("log");
  const Ending ending = launch({kClock}, {"QUILLON_LOG=json:" + log.string()});
  EXPECT_THAT(ending.out, HasSubstr("greeting: Good day\n"));
  EXPECT_THAT(contentOf(log), HasSubstr("plugin_before_execute"));
  EXPECT_THAT(contentOf(log), Not(HasSubstr("plugin_has_log_control")));
}

TEST_F(Launch, PicturesItselfToItsEnd) {
  const fs::path page = fresh("launch.html");
  const Ending ending = launch({kClock, "--timeline", page, "--", "--exit", "7"});
  EXPECT_EQ(ending.status, 7) << ending.err;
  EXPECT_EQ(valueOf(ending, "application"), kClock);
  const std::string text = contentOf(page);
  for (const char* step :
       {">enter the device root<", ">load the runtime&#39;s libraries<", ">plugin_initialize<",
        ">[quillon-tv-plugin] GetTPA Start<", ">coreclr_initialize<", ">plugin_set_app_info<",
        ">coreclr_execute_assembly: Main<", ">coreclr_shutdown_2<", "ended with status 7"}) {
    EXPECT_THAT(text, HasSubstr(step));
  }
  const std::string trace = contentOf(fresh("launch.json"));
  EXPECT_THAT(trace, HasSubstr("\"name\":\"coreclr_initialize\""));
  EXPECT_TRUE(nlohmann::json::accept(trace));
}

TEST_F(Launch, PicturesAnApplicationThatDies) {
  const fs::path page = fresh("launch.html");
  const Ending ending = launch({kClock, "--timeline", page, "--", "--throw"});
  EXPECT_EQ(ending.status, 128 + SIGABRT);
  EXPECT_THAT(contentOf(page), HasSubstr("ended by signal 6"));
  EXPECT_THAT(contentOf(page), HasSubstr("did not end"));
  EXPECT_TRUE(nlohmann::json::accept(contentOf(fresh("launch.json"))));
}

TEST_F(Launch, PicturesALaunchThatFails) {
  const fs::path page = fresh("launch.html");
  const Ending ending = launch({"org.velora.nothing", "--timeline", page});
  EXPECT_EQ(ending.status, 104);
  EXPECT_THAT(contentOf(page), HasSubstr(">find the application<"));
  EXPECT_THAT(contentOf(page), HasSubstr("ended with status 104"));
  const Ending unwritable = launch({kClock, "--timeline", "/nonexistent/launch.html"});
  EXPECT_EQ(unwritable.status, 112);
  EXPECT_THAT(unwritable.err, HasSubstr("cannot write the timeline '/nonexistent/launch.json'"));
  EXPECT_EQ(unwritable.out, "");
}

TEST_F(Launch, TakesTheRuntimesSettingsAsOnOrOff) {
  const Ending off = launch({"--diagnostics", "off", "--tiered-pgo", "off", kClock});
  EXPECT_EQ(off.status, 0) << off.err;
  EXPECT_EQ(valueOf(off, "application"), kClock);
  EXPECT_EQ(launch({"--diagnostics", "maybe", kClock}).status, 100);
}

}  // namespace
}  // namespace quillon::test
