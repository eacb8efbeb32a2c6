// Launches of the sample application through the built plug-in, up to its end.
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "quillon/host/plugin/launch_calls.h"
#include "tests/system/launch/running_probe.h"
#include "tests/system/launch/sample_device.h"

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
    if (!IsSkipped()) {
      makeDevice();
    }
  }
};

// The value of a line "name: value" in the sample's output; "(no such line)" if there is none.
std::string valueOf(const CommandResult& result, const std::string& name) {
  const std::string start = "\n" + name + ": ";
  const std::string text = "\n" + result.out;
  const size_t found = text.find(start);
  if (found == std::string::npos) {
    return "(no such line)";
  }
  const size_t begin = found + start.size();
  return text.substr(begin, text.find('\n', begin) - begin);
}

size_t count(const std::string& text, const std::string& part) {
  size_t times = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++times;
  }
  return times;
}

TEST_F(Launch, LoadsEachAssemblyFromItsDevicePath) {
  const CommandResult result = launch({kClock});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(valueOf(result, "assembly System.Private.CoreLib"),
            "/usr/share/dotnet.velora/netcoreapp/System.Private.CoreLib.dll");
  EXPECT_EQ(valueOf(result, "assembly System.Runtime"),
            "/usr/share/dotnet.velora/netcoreapp/System.Runtime.dll");
  EXPECT_EQ(valueOf(result, "assembly SampleClock"),
            "/opt/usr/apps/org.velora.sample.clock/bin/SampleClock.dll");
  EXPECT_EQ(valueOf(result, "assembly Velora.Sample.Calendar"),
            "/opt/usr/apps/org.velora.sample.calendar/shared/res/Velora.Sample.Calendar.dll");
  EXPECT_THAT(valueOf(result, "assembly Velora.Sample.Moon"),
              MatchesRegex("/proc/self/fd/[0-9]+/Velora.Sample.Moon.dll"));
}

// The runtime's trace provider, replaced by a library that loads on any machine.
class TraceProvider : public RuntimeTest {
 protected:
  static constexpr char kProvider[] = "libcoreclrtraceptprovider.so";

  void SetUp() override {
    RuntimeTest::SetUp();
    if (IsSkipped()) {
      return;
    }
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

TEST_F(TraceProvider, IsLoadedIfEventsAreEnabled) {
  EXPECT_FALSE(isLoadedWith("QUILLON_UNRELATED=1"));
  EXPECT_TRUE(isLoadedWith("DOTNET_EnableEventLog=1"));
  EXPECT_TRUE(isLoadedWith("DOTNET_LTTng=1"));
}

TEST_F(Launch, NamesTheProcessAfterTheApplication) {
  const CommandResult result = launch({kClock});
  EXPECT_EQ(valueOf(result, "application"), kClock);
  EXPECT_EQ(valueOf(result, "process name"), "DN_sample.clock");
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

TEST_F(Launch, PrintsNothingOnSuccess) {
  EXPECT_EQ(launch({kClock, "--", "--exit", "9", "--exit-at-once"}).err, "");
  EXPECT_EQ(launch({kClock}).err, "");
}

TEST_F(Launch, PassesArgumentsUnchanged) {
  const CommandResult result = launch({kClock, "--", "--plan", "[x,y]", "--", "--json", "\u00e4"});
  EXPECT_EQ(valueOf(result, "arguments"), "--plan [x,y] -- --json \u00e4");
}

// The launcher adds the variables of the plug-in before the plug-in gives them values.
TEST_F(Launch, KeepsTheEnvironmentIfThePluginDoesNotChangeIt) {
  const std::string questions =
      "unset SSL_CERT_FILE; printf 'variable %s\\n' DOTNET_APP SSL_CERT_FILE EMPTY "
      "DOTNET_SYSTEM_NET_HTTP_USESOCKETSHTTPHANDLER | ";
  const std::string command = QUILLON_BUILD_DIRECTORY
      "/bin/quillon launch --raw --direct --plugin " QUILLON_QUIET_PLUGIN " --device ";
  const CommandResult asked =
      run({"/bin/bash", "-c", questions + command + "'" + root().string() + "' " + kProbe},
          {"QUILLON_LOG=none", "EMPTY=", "DOTNET_SYSTEM_NET_HTTP_USESOCKETSHTTPHANDLER="});
  EXPECT_EQ(asked.status, 0) << asked.err;
  EXPECT_EQ(asked.out, "ready\n(none)\n(none)\n\n\n");
}

TEST_F(Launch, FindsSatelliteResources) {
  EXPECT_EQ(valueOf(launch({kClock}), "greeting"), "Good day");
  const CommandResult french = launch({kClock, "--", "--culture", "fr"});
  EXPECT_EQ(valueOf(french, "greeting"), "Bonjour");
  EXPECT_EQ(valueOf(french, "assembly SampleClock.resources"),
            "/opt/usr/apps/org.velora.sample.clock/bin/fr/SampleClock.resources.dll");
  EXPECT_EQ(valueOf(launch({kClock, "--", "--culture", "de"}), "greeting"), "Guten Tag");
}

TEST_F(Launch, PassesTheApplicationsOwnSettings) {
  const CommandResult result = launch({kClock, "--", "--property", "Velora.Sample.Clock.Face"});
  EXPECT_EQ(valueOf(result, "property Velora.Sample.Clock.Face"), "round");
}

TEST_F(Launch, TellsTheApplicationItsBaseDirectory) {
  EXPECT_EQ(valueOf(launch({kClock}), "base directory"),
            "/opt/usr/apps/org.velora.sample.clock/bin/");
}

TEST_F(Launch, PreloadsOnlyWithTheOption) {
  const std::string preload = "assembly Preload";
  EXPECT_EQ(valueOf(launch({kClock}), preload), "(no such line)");
  const CommandResult prepared = launch({kClock, "--preload", "--", "--exit", "5"});
  EXPECT_EQ(prepared.status, 5);
  EXPECT_EQ(valueOf(prepared, preload), "/usr/share/dotnet.velora/framework/Preload.dll");
}

TEST_F(Launch, SaysWhyTheUserHasNoHomeDirectory) {
  const std::string home = "/opt/usr/home/" + std::to_string(geteuid());
  fs::remove_all(at(home));
  write(at(home), "");
  EXPECT_EQ(launch({kClock}).err, "quillon: the home directory '" + home +
                                      "' in the device root is not a folder of this user; let the "
                                      "owner of the device root remove it\n");
}

TEST_F(Launch, NamesTheRemedyForAMissingPreloadAssembly) {
  fs::remove(at("/usr/share/dotnet.velora/framework/Preload.dll"));
  const CommandResult result = launch({kClock, "--preload"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err,
            "quillon: the device root has no assembly "
            "'/usr/share/dotnet.velora/framework/Preload.dll', or it cannot be loaded, so nothing "
            "was preloaded; copy it there: quillon device init " +
                root().string() + "\n");
  ASSERT_EQ(run({QUILLON_BUILD_DIRECTORY "/bin/quillon", "device", "init", root()}).status, 0);
  EXPECT_EQ(launch({kClock, "--preload"}).err, "");
}

TEST_F(Launch, EndsWithSigabrtOnAnUncaughtException) {
  const CommandResult result = launch({kClock, "--", "--throw"});
  EXPECT_EQ(result.status, 128 + SIGABRT);
  EXPECT_THAT(result.err, HasSubstr("System.InvalidOperationException: asked to fail"));
}

TEST_F(Launch, LoadsOneFileForANameOfSeveralFiles) {
  const fs::path calendar =
      at("/opt/usr/apps/org.velora.sample.calendar/shared/res/Velora.Sample.Calendar.dll");
  fs::copy(calendar, at("/usr/share/dotnet.velora/framework/velora.sample.calendar.dll"));
  fs::copy(calendar, at("/opt/usr/apps/org.velora.sample.clock/bin/Velora.Sample.Calendar.dll"));
  const CommandResult result = launch({kClock});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(valueOf(result, "assembly Velora.Sample.Calendar"),
            "/usr/share/dotnet.velora/framework/velora.sample.calendar.dll");
  EXPECT_EQ(count(result.out, "assembly Velora.Sample.Calendar:"), 1u);

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

TEST_F(Launch, LeavesOutPathsForWhichTheRuntimeWouldRejectTheList) {
  // A native image for the plug-in, by its name, and not an assembly for the runtime.
  write(at("/usr/share/dotnet.velora/framework/odd.ni.abc"), "");
  const CommandResult result = launch({kClock, "--", "--exit", "4"});
  EXPECT_EQ(result.status, 4) << result.err;
  const auto plan = nlohmann::json::parse(launch({kClock, "--plan", "--json"}).out);
  EXPECT_EQ(plan["leftOut"][0]["path"], "/usr/share/dotnet.velora/framework/odd.ni.abc");
}

TEST_F(Launch, ContinuesWithoutARequiredPackageThatIsMissing) {
  fs::remove_all(at("/opt/usr/apps/org.velora.sample.moon/shared"));
  const CommandResult result = launch({kClock, "--", "--exit", "6"});
  EXPECT_EQ(result.status, 6);
  EXPECT_THAT(valueOf(result, "age of the moon"), HasSubstr("unavailable"));
}

TEST_F(Launch, ShowsThePlanBeforeLaunchingWhenVerbose) {
  const CommandResult result = launch({kClock, "--verbose", "--", "--exit", "2"});
  EXPECT_EQ(result.status, 2);
  EXPECT_THAT(result.err, HasSubstr("plugin_set_coreclr_info()"));
  EXPECT_THAT(result.out, Not(HasSubstr("plugin_set_coreclr_info()")));
}

// The application's standard output, from the log.
std::string loggedOutput(const fs::path& log) {
  std::string output;
  std::istringstream lines(contentOf(log));
  for (std::string line; std::getline(lines, line);) {
    const std::string text = nlohmann::json::parse(line)["text"];
    if (text.find("log.cc: stdOutRedirect(") == std::string::npos) {
      continue;
    }
    const size_t begin = text.find("\x1b[0m") + 4;
    output += text.substr(begin, text.rfind("\x1b[0m") - begin) + "\n";
  }
  return output;
}

// Without the number of the plug-in's descriptor, which depends on the files that another thread
// has open at that moment.
std::string withoutDescriptor(const std::string& output) {
  return std::regex_replace(output, std::regex("/proc/self/fd/[0-9]+/"), "/proc/self/fd/N/");
}

TEST_F(Launch, LogsTheWholeOutputOfTheApplication) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{kClock, "--", "--exit", "3"},
        std::vector<std::string>{kClock, "--", "--exit", "3", "--exit-at-once"}}) {
    const fs::path log = fresh("log" + std::to_string(arguments.size()));
    const CommandResult captured = launchCaptured(arguments, {"QUILLON_LOG=json:" + log.string()});
    EXPECT_EQ(captured.status, 3);
    EXPECT_EQ(captured.out, "");
    EXPECT_EQ(captured.err, "");
    EXPECT_EQ(withoutDescriptor(loggedOutput(log)), withoutDescriptor(launch(arguments).out));
  }
}

TEST_F(Launch, LogsAnUncaughtExceptionBeforeTheProcessEnds) {
  const fs::path log = fresh("log");
  launchCaptured({kClock, "--", "--throw"}, {"QUILLON_LOG=json:" + log.string()});
  EXPECT_THAT(contentOf(log), HasSubstr("System.InvalidOperationException: asked to fail"));
  bool found = false;
  for (const auto& entry : fs::directory_iterator(at("/tmp"))) {
    if (entry.path().filename().string().rfind("dotnet_error.", 0) != 0) {
      continue;
    }
    found = true;
    EXPECT_THAT(contentOf(entry), HasSubstr("System.InvalidOperationException: asked to fail"));
  }
  EXPECT_TRUE(found);
}

TEST_F(Launch, ShowsCapturedOutputOnTheTerminalByDefault) {
  const CommandResult result = launchCaptured({kClock}, {});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr("stdOutRedirect("));
  EXPECT_THAT(result.err, HasSubstr("greeting: Good day\n"));
  EXPECT_THAT(result.err, Not(HasSubstr("DotNETLog")));
}

TEST_F(Launch, DoesNotCallLogControlWithRaw) {
  const fs::path log = fresh("log");
  const CommandResult result = launch({kClock}, {"QUILLON_LOG=json:" + log.string()});
  EXPECT_THAT(result.out, HasSubstr("greeting: Good day\n"));
  EXPECT_THAT(contentOf(log), HasSubstr("plugin_before_execute"));
  EXPECT_THAT(contentOf(log), Not(HasSubstr("plugin_has_log_control")));
}

// The functions of the plug-in and the runtime that a trace has a span for, in their order.
std::vector<std::string> tracedCalls(const fs::path& trace) {
  std::vector<std::string> calls;
  for (const auto& event : nlohmann::json::parse(contentOf(trace))) {
    const std::string name = event.value("name", "");
    const bool isCall = name.starts_with("plugin_") || name.starts_with("coreclr_");
    if (event["ph"] == "B" && isCall) {
      calls.push_back(name.substr(0, name.find(':')));
    }
  }
  return calls;
}

TEST_F(Launch, MakesTheCallsInTheStatedOrder) {
  const fs::path page = fresh("launch.html");
  ASSERT_EQ(launchCaptured({kClock, "--preload", "--timeline", page}).status, 0);
  std::vector<std::string> expected;
  for (const host::LaunchCall call : host::kDirectLaunchCalls) {
    expected.emplace_back(host::nameOf(call));
  }
  EXPECT_EQ(tracedCalls(fresh("launch.json")), expected);
}

struct Span {
  double begin = 0;
  double end = 0;
};

// The spans of a trace by their names, in microseconds.
std::map<std::string, Span> spansOf(const fs::path& trace) {
  std::map<std::string, Span> spans;
  std::map<int, std::vector<std::string>> open;  // of each thread
  for (const auto& event : nlohmann::json::parse(contentOf(trace))) {
    std::vector<std::string>& names = open[event.value("tid", 0)];
    if (event["ph"] == "B") {
      names.push_back(event["name"]);
      spans[names.back()].begin = event["ts"];
    } else if (event["ph"] == "E" && !names.empty()) {
      spans[names.back()].end = event["ts"];
      names.pop_back();
    }
  }
  return spans;
}

// The dynamic linker loads one library at a time. If the runtime's were first, every step that
// needs the plug-in would wait for them.
TEST_F(Launch, LoadsThePluginBeforeTheRuntimesLibraries) {
  ASSERT_EQ(launch({kClock, "--timeline", fresh("launch.html")}).status, 0);
  auto spans = spansOf(fresh("launch.json"));
  const Span libraries = spans["load the runtime's libraries"];
  EXPECT_LT(spans["load the plug-in"].end, libraries.begin);
  EXPECT_LT(libraries.end, spans["coreclr_initialize"].begin);
}

// The zone library refuses a process with two threads.
TEST_F(Launch, HasOneThreadWhenThePluginMayEnterAZone) {
  ASSERT_EQ(launch({kClock, "--type", "dotnet", "--timeline", fresh("launch.html")}).status, 0);
  auto spans = spansOf(fresh("launch.json"));
  EXPECT_LT(spans["load the runtime's libraries"].end, spans["plugin_initialize"].begin);
}

TEST_F(Launch, RemovesTheRecordsOfEndedProcesses) {
  const pid_t ended = fork();
  if (ended == 0) {
    _exit(0);
  }
  waitpid(ended, nullptr, 0);
  const fs::path record = at("/opt/usr/share/quillon/processes") / std::to_string(ended);
  fs::create_directories(record.parent_path());
  fs::create_symlink("1:org.velora.gone", record);
  EXPECT_EQ(launch({kClock}).status, 0);
  EXPECT_FALSE(fs::is_symlink(record));
}

TEST_F(Launch, WritesATimelineUpToItsEnd) {
  const fs::path page = fresh("launch.html");
  const CommandResult result = launch({kClock, "--timeline", page, "--", "--exit", "7"});
  EXPECT_EQ(result.status, 7) << result.err;
  EXPECT_EQ(valueOf(result, "application"), kClock);
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

TEST_F(Launch, WritesATimelineOfAnApplicationThatIsKilled) {
  const fs::path page = fresh("launch.html");
  const CommandResult result = launch({kClock, "--timeline", page, "--", "--throw"});
  EXPECT_EQ(result.status, 128 + SIGABRT);
  EXPECT_THAT(contentOf(page), HasSubstr("ended by signal 6"));
  EXPECT_THAT(contentOf(page), HasSubstr("did not end"));
  EXPECT_TRUE(nlohmann::json::accept(contentOf(fresh("launch.json"))));
}

TEST_F(Launch, WritesATimelineOfALaunchThatFails) {
  const fs::path page = fresh("launch.html");
  const CommandResult result = launch({"org.velora.nothing", "--timeline", page});
  EXPECT_EQ(result.status, 104);
  EXPECT_THAT(contentOf(page), HasSubstr(">find the application<"));
  EXPECT_THAT(contentOf(page), HasSubstr("ended with status 104"));
  const CommandResult unwritable = launch({kClock, "--timeline", fresh("missing") / "launch.html"});
  EXPECT_EQ(unwritable.status, 112);
  EXPECT_THAT(unwritable.err, HasSubstr("cannot write the timeline '" +
                                        (fresh("missing") / "launch.html").string() + "'"));
  EXPECT_EQ(unwritable.out, "");
}

TEST_F(Launch, AcceptsOnAndOffForRuntimeSettings) {
  const CommandResult off = launch({"--diagnostics", "off", "--tiered-pgo", "off", kClock});
  EXPECT_EQ(off.status, 0) << off.err;
  EXPECT_EQ(valueOf(off, "application"), kClock);
  EXPECT_EQ(launch({"--diagnostics", "maybe", kClock}).status, 100);
}

}  // namespace
}  // namespace quillon::test
