// A launch through the launch pad has the same result as a direct launch, or is a direct launch.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <regex>
#include <sstream>

#include "quillon/base/descriptor.h"
#include "quillon/host/plugin/launch_calls.h"
#include "quillon/launchpad/protocol/address.h"
#include "tests/system/attack/limited_run.h"
#include "tests/system/launch/running_zone.h"
#include "tests/system/launchpad/running_launchpad.h"

namespace quillon::test {
namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Pair;

using SameLaunch = LaunchpadTestByProcess;

INSTANTIATE_TEST_SUITE_P(By, SameLaunch, ::testing::Bool(), nameOfProcess);

std::vector<std::string> operator+(std::vector<std::string> one, std::vector<std::string> more) {
  one.insert(one.end(), more.begin(), more.end());
  return one;
}

// The output without the two assemblies that only a prepared process loads and without numbers of
// descriptors, and with the folder in place of the placeholder descriptor.
std::string comparable(const std::string& output) {
  static const std::regex kOwn("assembly (Preload|Quillon\\.Launchpad): .*\n");
  static const std::regex kFolder("/proc/self/fd/[0-9]+/de/");
  static const std::regex kDescriptor("/proc/self/fd/[0-9]+");
  std::string text = std::regex_replace(output, kOwn, "");
  text = std::regex_replace(text, kFolder, "/opt/usr/apps/org.velora.sample.clock/bin/de/");
  return std::regex_replace(text, kDescriptor, "/proc/self/fd/N");
}

TEST_P(SameLaunch, PrintsAndEndsTheSame) {
  start(1);
  prepareFor({"--raw", kClock});
  const std::vector<std::string> arguments = {kClock,       "--",
                                              "--exit",     "7",
                                              "--culture",  "de",
                                              "--property", "APP_PATHS",
                                              "--property", "APP_CONTEXT_BASE_DIRECTORY",
                                              "--property", "APP_CONTEXT_DEPS_FILES",
                                              "--property", "Velora.Sample.Clock.Face",
                                              "a b",        ""};
  const CommandResult direct = launch(std::vector<std::string>{"--raw", "--direct"} + arguments);
  const pid_t process = processes("ready").back();
  const CommandResult prepared = launch(std::vector<std::string>{"--raw", "--verbose"} + arguments);
  expectServed(1);
  EXPECT_EQ(prepared.status, 7);
  EXPECT_EQ(prepared.status, direct.status);
  EXPECT_EQ(comparable(prepared.out), comparable(direct.out));
  EXPECT_THAT(prepared.out,
              HasSubstr("base directory: /opt/usr/apps/org.velora.sample.clock/bin/"));
  EXPECT_EQ(prepared.err, "quillon: launched by the launch pad, in its process " +
                              std::to_string(process) + "\n");
  ASSERT_TRUE(awaitReady());
  const CommandResult failed = launch({"--raw", kClock, "--", "--throw"});
  EXPECT_EQ(failed.status, 128 + SIGABRT);
  EXPECT_THAT(failed.err, HasSubstr("asked to fail"));
  expectServed(2);
}

TEST_P(SameLaunch, LogsNoErrorIfAllIsWell) { expectNoErrorsInTheLog(); }

// The functions of the plug-in that a process's trace has a span for, in their order.
std::vector<std::string> tracedCalls(const fs::path& trace, pid_t process) {
  const std::regex span(R"x("ph":"B","pid":([0-9]+),.*"name":"(plugin_[a-z_]+)")x");
  std::vector<std::string> calls;
  std::istringstream lines(contentOf(trace));
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (std::regex_search(line, match, span) && match[1] == std::to_string(process)) {
      calls.push_back(match[2]);
    }
  }
  return calls;
}

TEST_P(SameLaunch, MakesTheCallsOfAPreparedLaunchInTheStatedOrder) {
  const fs::path trace = fresh("trace.json");
  setenv("QUILLON_TRACE", trace.c_str(), 1);
  start(1);
  ASSERT_EQ(launchCaptured({kClock}).status, 0);
  ASSERT_TRUE(awaitReady());
  const pid_t process = processes("ready").back();
  ASSERT_EQ(launchCaptured({kClock}).status, 0);
  expectServed(1);
  std::vector<std::string> expected;
  for (const host::LaunchCall call : host::kPreparedLaunchCalls) {
    const std::string name = host::nameOf(call);
    if (name.starts_with("plugin_")) {
      expected.push_back(name);
    }
  }
  EXPECT_EQ(tracedCalls(trace, process), expected);
}

TEST_P(SameLaunch, LogsToTheLogOfTheClient) {
  start(1);
  ASSERT_EQ(launchCaptured({kClock}).status, 0);
  ASSERT_TRUE(awaitReady());
  const std::string log = fresh("log").string();
  const CommandResult ending =
      launchCaptured({kClock, "--", "logged"}, {"QUILLON_LOG=json:" + log});
  expectServed(1);
  EXPECT_EQ(ending.out, "");
  EXPECT_EQ(ending.err, "");
  EXPECT_THAT(contentOf(log), HasSubstr("arguments: logged"));
  EXPECT_THAT(contentOf(log), HasSubstr("### App ID : org.velora.sample.clock ###"));
  ASSERT_TRUE(awaitReady());
  const CommandResult shown = launchCaptured({kClock, "--", "shown"}, {"QUILLON_LOG=terminal"});
  expectServed(2);
  EXPECT_THAT(shown.err, HasSubstr("arguments: shown"));
}

TEST_P(SameLaunch, TakesOverTheProcessStateOfTheClient) {
  start(1);
  prepareFor({kClock});  // another pool, which does not serve this launch
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitReady(2));
  const mode_t mask = umask(0027);
  const fs::path before = fs::current_path();
  fs::current_path("/usr");
  constexpr int kOwn = 93;
  ASSERT_EQ(dup2(open("/usr", O_RDONLY | O_CLOEXEC), kOwn), kOwn);
  RunningProbe probe(root(), "inhouse", {"QUILLON_LOG=none", "OWN=a=b", "TMPDIR=/elsewhere"});
  fs::current_path(before);
  umask(mask);
  close(kOwn);
  EXPECT_EQ(probe.ask("variable OWN"), "a=b") << probe.errors();
  EXPECT_EQ(probe.ask("variable QUILLON_APP_ID"), kProbe);
  EXPECT_EQ(probe.ask("variable DOTNET_APP"), "1");
  EXPECT_EQ(probe.ask("variable TMPDIR"), "(none)");
  for (const std::string variable :
       {"QUILLON_LAUNCHPAD", "DOTNET_TC_BackgroundWorkerTimeoutMs", "DOTNET_LTTng"}) {
    EXPECT_EQ(probe.ask("variable " + variable), "(none)");
  }
  EXPECT_EQ(probe.ask("assembly Velora.TV.Screen").find("/proc/self/fd/"), 0U);
  const fs::path process = "/proc/" + probe.ask("process");
  EXPECT_NE(process, "/proc/" + std::to_string(probe.pid()));
  EXPECT_EQ(fs::read_symlink(process / "cwd"), "/usr");
  EXPECT_EQ(fs::read_symlink(process / "fd/93"), "/usr");
  EXPECT_THAT(contentOf(process / "status"), HasSubstr("Umask:\t0027"));
  EXPECT_EQ(probe.quit(), 0);
  expectServed(1);
}

// The descriptors of a process that a program executed by it inherits, except the standard ones.
std::map<int, std::string> inheritedDescriptors(const std::string& process) {
  constexpr int kBase = 8;
  std::map<int, std::string> found;
  const fs::path folder = "/proc/" + process;
  for (const auto& entry : fs::directory_iterator(folder / "fd")) {
    const std::string name = entry.path().filename();
    const std::string info = contentOf(folder / "fdinfo" / name);
    const size_t flags = info.find("flags:") + std::strlen("flags:");
    const bool closes = (std::stoi(info.substr(flags), nullptr, kBase) & O_CLOEXEC) != 0;
    if (!closes && std::stoi(name) > STDERR_FILENO) {
      found[std::stoi(name)] = fs::read_symlink(entry.path());
    }
  }
  return found;
}

// Shells, make and others leave descriptors with low numbers open.
TEST_P(SameLaunch, InheritsDescriptorsUnderTheirNumbers) {
  start(1);
  std::map<int, std::string> inherited;
  std::vector<Descriptor> open;
  for (const int atLeast : {3, 3, 3, 3, 20, 63, 79, 80, 199}) {
    const std::string target = open.size() % 2 == 0 ? "/usr" : "/";
    const Descriptor folder(::open(target.c_str(), O_RDONLY | O_CLOEXEC));
    open.emplace_back(fcntl(folder.get(), F_DUPFD, atLeast));
    inherited[open.back().get()] = target;
  }
  for (const int prepared : {0, 1}) {  // no process is ready for the first launch
    RunningProbe probe(root(), "inhouse");
    expectServed(prepared);
    const auto has = inheritedDescriptors(probe.ask("process"));
    for (const auto& [number, target] : inherited) {
      EXPECT_THAT(has, Contains(Pair(number, target))) << prepared;
    }
    EXPECT_EQ(probe.quit(), 0);
    ASSERT_TRUE(awaitReady());
  }
}

TEST_P(SameLaunch, ALaunchWithALowLimitOfOpenFilesIsDirect) {
  start(1);
  prepareFor({"--raw", kClock});
  const CommandResult ending =
      runLimited({"/bin/sh", "-c",
                  "ulimit -n 256; exec " QUILLON_BUILD_DIRECTORY "/bin/quillon launch --device " +
                      root().string() + " --raw --verbose " + kClock});
  EXPECT_EQ(ending.status, 0);
  EXPECT_THAT(ending.err,
              HasSubstr("its limit of open files is 256, and a prepared process needs"));
  expectServed(0);
}

// In any other folder, "/" for example, a web application would look for its files in the whole
// machine.
TEST_P(SameLaunch, StartsInTheApplicationsFolderIfTheDeviceHidesTheWorkingDirectory) {
  start(1);
  const fs::path before = fs::current_path();
  const fs::path hidden = fresh("hidden");
  fs::create_directory(hidden);
  const std::string own = "/opt/usr/apps/org.velora.sample.probe/bin";
  const std::string warning = "quillon: the device root hides the working directory '" +
                              hidden.string() + "'; the application starts in '" + own +
                              "'; to keep it: quillon launch --writable " + hidden.string() + "\n";
  for (const int prepared : {0, 1}) {  // no process is ready for the first launch
    fs::current_path(hidden);
    RunningProbe probe(root(), "inhouse");
    fs::current_path(before);
    expectServed(prepared);
    EXPECT_EQ(probe.ask("directory"), own);
    EXPECT_EQ(probe.quit(), 0);
    EXPECT_EQ(probe.errors(), warning);
    ASSERT_TRUE(awaitReady());
  }
}

// The mount point of an earlier launch with --writable stays in the device root.
TEST_P(SameLaunch, StartsInTheApplicationsFolderIfTheDeviceHasAnotherFolderAtThePath) {
  start(1);
  const fs::path before = fs::current_path();
  const fs::path hidden = fresh("hidden");
  fs::create_directory(hidden);
  fs::create_directories(at(hidden));
  const std::string own = "/opt/usr/apps/org.velora.sample.probe/bin";
  for (const int prepared : {0, 1}) {  // no process is ready for the first launch
    fs::current_path(hidden);
    RunningProbe probe(root(), "inhouse");
    fs::current_path(before);
    expectServed(prepared);
    EXPECT_EQ(probe.ask("directory"), own);
    EXPECT_EQ(probe.quit(), 0);
    EXPECT_THAT(probe.errors(), HasSubstr("hides the working directory '" + hidden.string() +
                                          "'; the application starts in '" + own + "'"));
    ASSERT_TRUE(awaitReady());
  }
}

TEST_P(SameLaunch, NamesNoRemedyForAFolderThatCannotStayWritable) {
  const fs::path before = fs::current_path();
  fs::current_path("/tmp");
  const CommandResult direct = launch({"--direct", kClock});
  fs::current_path(before);
  EXPECT_EQ(direct.status, 0);
  EXPECT_THAT(direct.err, HasSubstr("hides the working directory '/tmp'"));
  EXPECT_THAT(direct.err, HasSubstr("; launch from another folder\n"));
}

TEST_P(SameLaunch, HasTheHomeDirectoryOfTheDevice) {
  start(1);
  const std::string home = "/opt/usr/home/" + std::to_string(geteuid());
  for (const int prepared : {0, 1}) {  // no process is ready for the first launch
    RunningProbe probe(root(), "inhouse",
                       {"QUILLON_LOG=none", "HOME=/root", "XDG_DATA_HOME=/elsewhere"});
    expectServed(prepared);
    EXPECT_EQ(probe.ask("variable HOME"), home);
    EXPECT_EQ(probe.ask("variable XDG_CONFIG_HOME"), home + "/.config");
    EXPECT_EQ(probe.ask("variable XDG_CACHE_HOME"), home + "/.cache");
    EXPECT_EQ(probe.ask("variable XDG_STATE_HOME"), home + "/.local/state");
    EXPECT_EQ(probe.ask("folder UserProfile"), home);
    EXPECT_EQ(probe.ask("folder ApplicationData"), home + "/.config");
    EXPECT_EQ(probe.ask("folder LocalApplicationData"), home + "/.local/share");
    EXPECT_EQ(probe.ask("create " + home + "/.config/file"), home + "/.config/file");
    EXPECT_EQ(probe.quit(), 0);
    EXPECT_EQ(probe.errors(), "");
    EXPECT_TRUE(fs::remove(at(home + "/.config/file")));
    ASSERT_TRUE(awaitReady());
  }
}

// Each thread has its own capabilities.
TEST_P(SameLaunch, HasNoCapabilities) {
  start(1);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitReady());
  RunningProbe probe(root(), "inhouse");
  const fs::path threads = "/proc/" + probe.ask("process") + "/task";
  expectServed(1);
  int seen = 0;
  for (const auto& thread : fs::directory_iterator(threads)) {
    EXPECT_THAT(contentOf(thread.path() / "status"), HasSubstr("CapPrm:\t0000000000000000"));
    ++seen;
  }
  EXPECT_GT(seen, 1);
}

TEST_P(SameLaunch, RunsInTheZone) { expectApplicationInTheZone(); }

TEST_P(SameLaunch, RunsFreshProcessesInTheZone) { expectApplicationInTheZone({"--fresh"}); }

// The launch pad's view of the device root does not contain the zone.
TEST_P(SameLaunch, ALaunchIntoAZoneThatStartedLaterIsDirect) {
  start(1);
  prepareFor({"--raw", "--type", "dotnet", kClock});
  const std::vector<std::string> arguments = {"--raw", "--verbose", "--type", "dotnet", kClock};
  const auto isDirect = HasSubstr("not by the launch pad: the security zone is another one");
  {
    const RunningZone zone(root());
    ASSERT_NE(zone.holder(), "") << zone.started().err;
    EXPECT_THAT(launch(arguments).err, isDirect);
    expectServed(0);
  }
  EXPECT_THAT(launch(arguments).err, Not(isDirect));
}

// Debug mode is decided when a process enters the zone, which a prepared process has done.
TEST_P(SameLaunch, ALaunchInDebugModeIsDirect) {
  const std::string manifest =
      "[package]\nid = \"org.velora.sample.clock\"\nversion = \"1\"\n"
      "files = \"org.velora.sample.clock\"\n"
      "privileges = [\"/privilege/internal/appdebugging\",\n"
      "  \"/privilege/internal/default/platform\"]\n"
      "[[application]]\nid = \"org.velora.sample.clock\"\nexec = \"bin/SampleClock.dll\"\n";
  installClock(manifest);
  start(1);
  prepareFor({"--raw", kClock});  // of a type that enters no zone
  const CommandResult direct = launch({"--raw", "--verbose", "--type", "dotnet", kClock});
  EXPECT_THAT(direct.err, HasSubstr("not by the launch pad: its package asks for debug mode"));
  EXPECT_THAT(status(), Not(HasSubstr("dotnet")));
  expectServed(0);
  EXPECT_EQ(launch({"--raw", kClock}).status, 0);
  expectServed(1);
}

TEST_P(SameLaunch, ARefusalIsTheResult) {
  start(1);
  prepareFor({"--raw", kClock});
  installClock(
      "[package]\nid = \"org.velora.sample.clock\"\nversion = \"1\"\n"
      "files = \"org.velora.sample.clock\"\n"
      "[[application]]\nid = \"org.velora.sample.clock\"\nexec = \"bin/SampleClock.dll\"\n");
  // The installation has made the prepared process outdated.
  const CommandResult first = launch({"--raw", "--verbose", kClock});
  EXPECT_THAT(first.err, HasSubstr("launched directly, not by the launch pad"));
  ASSERT_TRUE(awaitReady());
  const CommandResult refused = launch({"--raw", "--verbose", kClock});
  EXPECT_EQ(refused.status, 0);
  EXPECT_EQ(refused.out, "");
  EXPECT_THAT(refused.err, HasSubstr("### This App doesn't have platform privilege ###"));
  EXPECT_THAT(refused.err, Not(HasSubstr("launched directly")));
}

TEST_P(SameLaunch, SignalsReachTheApplication) {
  start(1);
  int direct = 0;
  {
    RunningProbe probe(root(), "inhouse");
    kill(probe.pid(), SIGTERM);
    direct = probe.quit();
  }
  ASSERT_TRUE(awaitReady());
  RunningProbe probe(root(), "inhouse");
  const pid_t application = std::stoi(probe.ask("process"));
  expectServed(1);
  kill(probe.pid(), SIGTSTP);
  EXPECT_TRUE(eventually([&] {
    return contentOf("/proc/" + std::to_string(application) + "/stat").find(") T ") !=
           std::string::npos;
  }));
  kill(probe.pid(), SIGCONT);
  EXPECT_EQ(probe.ask("variable QUILLON_APP_ID"), kProbe);
  kill(probe.pid(), SIGTERM);
  EXPECT_EQ(probe.quit(), direct);
  EXPECT_FALSE(isAlive(application));
}

// The lines of a process's status about ignored and handled signals.
std::string signalDispositions(const std::string& process) {
  std::istringstream status(contentOf("/proc/" + process + "/status"));
  std::string all;
  for (std::string line; std::getline(status, line);) {
    all += line.starts_with("SigIgn:") || line.starts_with("SigCgt:") ? line + "\n" : "";
  }
  return all;
}

// nohup(1) lets a program ignore SIGHUP, a shell script lets a program in the background ignore
// SIGINT and SIGQUIT. The runtime handles the latter unless they are ignored at its start, and
// SIGTERM anyway.
TEST_P(SameLaunch, IgnoresTheSignalsThatTheClientIgnores) {
  start(1);
  const auto ignored = {SIGINT, SIGQUIT, SIGHUP, SIGTERM, SIGUSR2, SIGCHLD, SIGTSTP, SIGRTMAX};
  std::vector<std::string> dispositions;
  for (const int prepared : {0, 1}) {  // no process is ready for the first launch
    for (const int signal : ignored) {
      ::signal(signal, SIG_IGN);
    }
    RunningProbe probe(root(), "inhouse");
    for (const int signal : ignored) {
      ::signal(signal, SIG_DFL);
    }
    const std::string process = probe.ask("process");
    expectServed(prepared);
    dispositions.push_back(signalDispositions(process));
    EXPECT_EQ(probe.quit(), 0);
    ASSERT_TRUE(awaitReady());
  }
  EXPECT_EQ(dispositions[1], dispositions[0]);
  EXPECT_THAT(dispositions[0], Not(HasSubstr("SigIgn:\t0000000000000000")));
}

TEST_P(SameLaunch, KeepsAVariableThatTheWarmUpChanges) {
  setenv("QUILLON_LAUNCHPAD", "kept", 1);
  start(1);
  { RunningProbe direct(root(), "inhouse"); }
  ASSERT_TRUE(awaitReady());
  RunningProbe probe(root(), "inhouse");
  unsetenv("QUILLON_LAUNCHPAD");
  EXPECT_EQ(probe.ask("variable QUILLON_LAUNCHPAD"), "kept") << probe.errors();
  EXPECT_EQ(probe.quit(), 0);
  expectServed(1);
}

// Holds the lock of SQLite's that blocks every reader of the registry.
TEST_P(SameLaunch, DoesNotWaitForTheRegistry) {
  constexpr off_t kPendingByte = 0x40000000;  // SQLite's database file format
  start(1);
  prepareFor({"--raw", kClock});
  launch({"--raw", kClock});
  ASSERT_TRUE(awaitReady());
  const int registry = open(at("/opt/usr/share/quillon/packages.db").c_str(), O_RDWR | O_CLOEXEC);
  flock lock{};
  lock.l_type = F_WRLCK;
  lock.l_start = kPendingByte;
  lock.l_len = 512;
  ASSERT_EQ(fcntl(registry, F_SETLK, &lock), 0);
  const CommandResult ending = launch({"--raw", kClock});
  close(registry);
  EXPECT_EQ(ending.status, 0) << ending.err;
  EXPECT_THAT(ending.out, HasSubstr(kClock));
  expectServed(2);
}

// A hook that cannot be loaded ends the process that runs it.
TEST_P(SameLaunch, StartupHooksRunInTheLaunchOnly) {
  setenv("DOTNET_STARTUP_HOOKS", "/usr/share/no-hook.dll", 1);
  start(1);
  launch({"--raw", kClock});  // directly, since nothing is prepared for it yet
  ASSERT_TRUE(awaitReady());
  const CommandResult ending = launch({"--raw", kClock});
  unsetenv("DOTNET_STARTUP_HOOKS");
  EXPECT_EQ(ending.status, 128 + SIGABRT);
  EXPECT_THAT(ending.err, HasSubstr("no-hook.dll"));
  expectServed(1);
}

TEST_P(SameLaunch, ALaunchThatAPreparedProcessCannotServeIsDirect) {
  start(1);
  prepareFor({"--raw", kClock});
  const auto reason = [&](const std::vector<std::string>& options,
                          const std::vector<std::string>& environment) {
    const CommandResult ending = launch(std::vector<std::string>{"--raw", "--verbose"} + options +
                                            std::vector<std::string>{kClock, "--", "--exit", "5"},
                                        std::vector<std::string>{"QUILLON_LOG=none"} + environment);
    EXPECT_EQ(ending.status, 5) << ending.err;
    return ending.err.substr(0, ending.err.find_first_of(";\n"));  // without the remedy
  };
  const std::string start = "quillon: launched directly, not by the launch pad: ";
  EXPECT_EQ(reason({}, {"LC_MESSAGES=C.UTF-8"}),
            start + "the environment variable LC_MESSAGES differs from the launch pad's");
  EXPECT_EQ(reason({"--type", "normal"}, {}), start + "no process is ready for it");
  EXPECT_EQ(reason({"--direct"}, {}), start + "--direct is given");
  EXPECT_EQ(reason({"--writable", root()}, {}), start + "--writable needs its own mounts");
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR2);
  sigprocmask(SIG_BLOCK, &blocked, nullptr);
  EXPECT_EQ(reason({}, {}), start + "its blocked signals differ from the launch pad's");
  sigprocmask(SIG_UNBLOCK, &blocked, nullptr);
  constexpr int kHigh = 205;
  dup2(STDIN_FILENO, kHigh);
  EXPECT_EQ(reason({}, {}), start +
                                "a prepared process cannot take over the inherited descriptor "
                                "205: it uses the numbers from 200 on");
  close(kHigh);
  std::vector<Descriptor> many;
  for (int i = 0; i < 25; ++i) {
    many.emplace_back(dup(STDIN_FILENO));
  }
  EXPECT_EQ(reason({}, {}),
            start + "a prepared process cannot take over 25 inherited descriptors, but at most 24");
  many.clear();
  const int nice = getpriority(PRIO_PROCESS, 0);
  setpriority(PRIO_PROCESS, 0, nice + 1);
  EXPECT_EQ(reason({}, {}), start + "its scheduling differs from the launch pad's");
  expectServed(0);
}

// A launch that is direct anyway connects to the launch pad only if --verbose asks for the reason.
TEST_P(SameLaunch, ADirectLaunchDoesNotConnect) {
  const auto listener = launchpad::listenAt(launchpad::addressOf(root()), root());
  ASSERT_TRUE(listener);
  EXPECT_EQ(launch({"--direct", "--plan", kClock}).status, 0);
  EXPECT_FALSE(launchpad::acceptFrom(listener->get()));
  EXPECT_EQ(launch({"--direct", "--plan", "--verbose", kClock}).status, 0);
  EXPECT_TRUE(launchpad::acceptFrom(listener->get()));
}

}  // namespace
}  // namespace quillon::test
