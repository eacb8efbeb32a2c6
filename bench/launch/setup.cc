#include "bench/launch/setup.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cstdio>
#include <fstream>

#include "quillon/base/files.h"
#include "quillon/dotnet/runtime_lookup.h"

namespace quillon::bench {
namespace {

namespace fs = std::filesystem;

constexpr char kCapturedLaunch[] = "the same, output captured, all logged";
constexpr char kUnloggedLaunch[] = "the same, log off";
constexpr char kAllLogged[] = "QUILLON_LOG=terminal";
constexpr char kRemedy[] = "build the target launch_bench on a machine with a .NET SDK";

Expected<void> findHost(Setup& setup) {
  ASSIGN_OR_RETURN(const auto framework, dotnet::findFramework());
  const fs::path root = framework.directory.parent_path().parent_path().parent_path();
  setup.runtimeVersion = framework.version;
  setup.dotnet = root / "dotnet";
  setup.hostResolver = root / "host/fxr" / framework.version / "libhostfxr.so";
  for (const fs::path& file : {setup.dotnet, setup.hostResolver}) {
    if (!fs::exists(file)) {
      return fail("the stock host's '" + file.string() + "' is missing",
                  "install a .NET SDK, or name its folder: DOTNET_ROOT");
    }
  }
  return {};
}

Expected<void> makeDevice(const Setup& setup) {
  RETURN_IF_FAILED(outputOf(quoted(setup.quillon()) + " device init " + quoted(setup.device)));
  return {};
}

// Writes the launcher's plan to a file, so that the bare host starts the runtime identically.
Expected<void> writeProperties(const Setup& setup, const Application& application) {
  ASSIGN_OR_RETURN(const std::string plan,
                   outputOf(quoted(setup.quillon()) + " launch --plan --json --device " +
                            quoted(setup.device) + " " + application.id));
  const auto json = nlohmann::ordered_json::parse(plan, nullptr, false);
  std::ofstream file(application.properties);
  for (const auto& [name, value] : json.at("properties").items()) {
    file << name << '=' << value.get<std::string>() << '\n';
  }
  return {};
}

Expected<void> install(Setup& setup, const std::string& title, const std::string& name,
                       const std::string& program, double directAim) {
  const std::string id = "org.velora.bench." + name;
  RETURN_IF_FAILED(
      outputOf(quoted(setup.quillon()) + " package install --device " + quoted(setup.device) + " " +
               quoted(setup.ownBuild / "bench/launch/sample/packages" / (id + ".toml"))));
  const std::string stem = "/opt/usr/apps/" + id + "/bin/" + program;
  setup.applications.push_back(
      {title, id, stem + ".dll", stem, (setup.work / (name + ".properties")).string(), directAim});
  return writeProperties(setup, setup.applications.back());
}

std::vector<std::string> launchCommand(const Setup& setup, const Application& application,
                                       const std::vector<std::string>& more) {
  std::vector<std::string> command = {setup.quillon(), "launch", "--device", setup.device,
                                      application.id};
  command.insert(command.end(), more.begin(), more.end());
  command.emplace_back("--");
  return command;
}

std::vector<Contender> directLaunchesOf(const Setup& setup, const Application& application) {
  const auto launch = [&](std::vector<std::string> more) {
    more.insert(more.begin(), "--direct");
    return launchCommand(setup, application, more);
  };
  std::vector<Contender> all = {
      {kDirectLaunch, {}, launch({"--raw"})},
      {kCapturedLaunch, {}, launch({}), {kAllLogged}},
      {kUnloggedLaunch, {}, launch({"--raw"}), {"QUILLON_LOG=none"}},
      {"the same, all logged to a file",
       {},
       launch({"--raw"}),
       {"QUILLON_LOG=file:/tmp/quillon-bench.log"}},
      {"the same, from outside the device root", {}, launch({"--raw"}), {}, false}};
  all[0].aims = {{kStockHost, application.directAim}, {kBareHost, 1.05}};
  all[3].aims = {{kUnloggedLaunch, 1.02}};
  if (application.onTerminal) {
    return all;
  }
  for (const char* setting : {"--diagnostics", "--tiered-pgo", "--tiered-compilation",
                              "--quick-jit-for-loops", "--ready-to-run", "--write-xor-execute"}) {
    all.push_back(
        {std::string("the same, ") + setting + " off", {}, launch({"--raw", setting, "off"})});
  }
  return all;
}

PreparedRequest requestOf(const Setup& setup) {
  return {setup.programOfBuild("launch_asker"), setup.fullProgram(), setup.device};
}

std::vector<Contender> preparedLaunchesOf(const Setup& setup, const Application& application) {
  const auto raw = launchCommand(setup, application, {"--raw"});
  const auto captured = launchCommand(setup, application, {});
  std::vector<Contender> all = {
      {kPreparedMessage, {}, {}},
      {"prepared, quillon launch --raw", {}, raw},
      {"prepared, output captured, all logged", {}, captured, {kAllLogged}},
      {"pool empty, quillon launch --raw", {}, raw},
      {"pool empty, output captured, all logged", {}, captured, {kAllLogged}}};
  for (Contender& one : all) {
    one.pool = Pool::kFull;
    one.aims = {{kStockHost, 0.065}};
  }
  all[0].request = requestOf(setup);
  all[3].pool = all[4].pool = Pool::kEmpty;
  all[3].aims = {{kDirectLaunch, 1.05}};
  all[4].aims = {{kCapturedLaunch, 1.05}};
  return all;
}

// Launches in processes that are prepared for the application.
std::vector<Contender> ownLaunchesOf(const Setup& setup, const Application& application) {
  std::vector<Contender> all = {
      {kOwnMessage, {}, {}},
      {"own worker, quillon launch --raw", {}, launchCommand(setup, application, {"--raw"})}};
  for (Contender& one : all) {
    one.pool = Pool::kOwn;
  }
  all[0].request = requestOf(setup);
  all[0].aims = {{kStockHost, 0.045}};
  all[1].aims = {{kStockHost, 0.055}};
  return all;
}

// The ways that start no program of the measured build.
std::vector<Contender> referencesOf(const Setup& setup, const Application& application) {
  std::vector<Contender> all = {
      {kStockHost, {}, {setup.dotnet, application.assembly}},
      {"the application's apphost", {}, {application.appHost}},
      {kBareHost, {}, {setup.program("bare_host"), application.properties, application.assembly}}};
  for (Contender& one : all) {
    one.usesBuild = false;
  }
  return all;
}

// The stock host, until it has resolved the runtime's properties.
Contender stockResolutionOf(const Setup& setup, const Application& application) {
  Contender contender{kStockResolution,
                      application.id,
                      {setup.program("stock_resolution"), setup.hostResolver,
                       setup.dotnet.parent_path(), application.assembly}};
  contender.usesBuild = false;
  contender.timesItself = true;
  return contender;
}

// A program that times each call of the plug-in.
Contender pluginCallsOf(const Setup& setup, const Application& application) {
  Contender contender{
      kPluginCalls,
      application.id,
      {setup.programOfBuild("plugin_calls"), setup.build / "lib/libquillon-tv-plugin.so",
       application.properties, application.id, application.id, application.assembly}};
  contender.timesItself = true;
  return contender;
}

// The same with a platform whose functions return at once: the plug-in's own part of its calls.
Contender ownCallsOf(const Setup& setup, const Application& application) {
  Contender contender = pluginCallsOf(setup, application);
  contender.name = kOwnCalls;
  contender.environment = {"LD_PRELOAD=" + setup.program("libsilent_platform.so").string()};
  return contender;
}

}  // namespace

fs::path Setup::fullProgram() const {
  const fs::path full = build / "libexec/quillon";
  std::error_code error;
  return fs::exists(full, error) ? full : quillon();
}

std::string quoted(const fs::path& path) { return "'" + path.string() + "'"; }

Expected<std::string> outputOf(const std::string& command) {
  std::FILE* const stream = popen(command.c_str(), "re");
  if (stream == nullptr) {
    return fail("cannot run " + command, kRemedy);
  }
  std::string output;
  std::array<char, 4096> bytes{};
  while (const size_t count = std::fread(bytes.data(), 1, bytes.size(), stream)) {
    output.append(bytes.data(), count);
  }
  if (pclose(stream) == 0) {
    return output;
  }
  return fail("failed: " + command, kRemedy);
}

fs::path Setup::programOfBuild(const char* name) const {
  const fs::path its = build / "bench" / name;
  return fs::exists(its) ? its : program(name);
}

Expected<Setup> makeSetup(const fs::path& build, const fs::path& work, Workers workers) {
  Setup setup;
  setup.build = build;
  setup.ownBuild = executablePath().parent_path().parent_path();
  setup.work = work;
  setup.device = work / "device";
  setup.workers = workers;
  std::error_code ignored;
  fs::create_directory(work, ignored);
  RETURN_IF_FAILED(findHost(setup));
  RETURN_IF_FAILED(makeDevice(setup));
  RETURN_IF_FAILED(install(setup, "console application", "hello", "Hello", 1.0));
  RETURN_IF_FAILED(install(setup, "with 200 assemblies of its own", "many", "Many", 0.97));
  setup.applications.push_back(setup.applications.front());
  setup.applications.back().title = "on a pseudo terminal";
  setup.applications.back().onTerminal = true;
  return setup;
}

bool hasOwnWorkers(const fs::path& build) {
  const auto help = outputOf(quoted(build / "bin/quillon") + " launchpad --help");
  return help && help->find(kMemoryOption) != help->npos;
}

std::vector<Contender> contendersOf(const Setup& setup, const Application& application) {
  std::vector<Contender> all;
  const auto add = [&](std::vector<Contender> more) {
    all.insert(all.end(), more.begin(), more.end());
  };
  if (setup.workers == Workers::kOwn) {
    add(ownLaunchesOf(setup, application));
  } else {
    add(referencesOf(setup, application));
    add(directLaunchesOf(setup, application));
    add(preparedLaunchesOf(setup, application));
    if (!application.onTerminal) {
      add({stockResolutionOf(setup, application), pluginCallsOf(setup, application),
           ownCallsOf(setup, application)});
    }
  }
  for (Contender& one : all) {
    one.appId = application.id;
    one.onTerminal = application.onTerminal;
  }
  return all;
}

}  // namespace quillon::bench
