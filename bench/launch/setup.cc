#include "bench/launch/setup.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cstdio>
#include <fstream>

#include "quillon/dotnet/runtime_lookup.h"

namespace quillon::bench {
namespace {

namespace fs = std::filesystem;

constexpr char kCapturedLaunch[] = "the same, output captured, all logged";
constexpr char kUnloggedLaunch[] = "the same, log off";
constexpr char kAllLogged[] = "QUILLON_LOG=terminal";
constexpr char kRemedy[] = "build the target launch_bench on a machine with a .NET SDK";

// Quotes a path for the shell. Paths of the benchmark and the build contain no quotes.
std::string quoted(const fs::path& path) { return "'" + path.string() + "'"; }

// Runs a command and returns its standard output. A failing command reports on standard error.
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
  RETURN_IF_FAILED(outputOf(quoted(setup.quillon()) + " package install --device " +
                            quoted(setup.device) + " " +
                            quoted(setup.build / "bench/launch/sample/packages" / (id + ".toml"))));
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
      {kDirectLaunch, launch({"--raw"})},
      {kCapturedLaunch, launch({}), {kAllLogged}},
      {kUnloggedLaunch, launch({"--raw"}), {"QUILLON_LOG=none"}},
      {"the same, all logged to a file",
       launch({"--raw"}),
       {"QUILLON_LOG=file:/tmp/quillon-bench.log"}},
      {"the same, from outside the device root", launch({"--raw"}), {}, false}};
  all[0].aims = {{kStockHost, application.directAim}, {kBareHost, 1.02}};
  all[3].aims = {{kUnloggedLaunch, 1.02}};
  for (const char* setting : {"--diagnostics", "--tiered-pgo", "--tiered-compilation",
                              "--quick-jit-for-loops", "--ready-to-run", "--write-xor-execute"}) {
    all.push_back(
        {std::string("the same, ") + setting + " off", launch({"--raw", setting, "off"})});
  }
  return all;
}

std::vector<Contender> preparedLaunchesOf(const Setup& setup, const Application& application) {
  const auto raw = launchCommand(setup, application, {"--raw"});
  const auto captured = launchCommand(setup, application, {});
  std::vector<Contender> all = {
      {"prepared, from the message", {}},
      {"prepared, quillon launch --raw", raw},
      {"prepared, output captured, all logged", captured, {kAllLogged}},
      {"pool empty, quillon launch --raw", raw},
      {"pool empty, output captured, all logged", captured, {kAllLogged}}};
  for (Contender& one : all) {
    one.pool = Pool::kFull;
    one.aims = {{kStockHost, 0.05}};
  }
  all[0].request = {setup.fullProgram(), setup.device, application.id};
  all[3].pool = all[4].pool = Pool::kEmpty;
  all[3].aims = {{kDirectLaunch, 1.05}};
  all[4].aims = {{kCapturedLaunch, 1.05}};
  return all;
}

}  // namespace

Expected<Setup> makeSetup(const fs::path& build, const fs::path& work) {
  Setup setup;
  setup.build = build;
  setup.work = work;
  setup.device = work / "device";
  RETURN_IF_FAILED(findHost(setup));
  RETURN_IF_FAILED(makeDevice(setup));
  RETURN_IF_FAILED(install(setup, "console application", "hello", "Hello", 0.97));
  RETURN_IF_FAILED(install(setup, "with 200 assemblies of its own", "many", "Many", 0.92));
  return setup;
}

std::vector<Contender> contendersOf(const Setup& setup, const Application& application) {
  const auto directs = directLaunchesOf(setup, application);
  const auto prepared = preparedLaunchesOf(setup, application);
  std::vector<Contender> all = {
      {kStockHost, {setup.dotnet, application.assembly}},
      {"the application's apphost", {application.appHost}},
      {kBareHost, {setup.program("bare_host"), application.properties, application.assembly}}};
  all.insert(all.end(), directs.begin(), directs.end());
  all.insert(all.end(), prepared.begin(), prepared.end());
  return all;
}

Contender stockResolutionOf(const Setup& setup, const Application& application) {
  return {"stock resolution",
          {setup.program("stock_resolution"), setup.hostResolver, setup.dotnet.parent_path(),
           application.assembly}};
}

Contender pluginCallsOf(const Setup& setup, const Application& application) {
  return {"plug-in's calls",
          {setup.program("plugin_calls"), setup.build / "lib/libquillon-tv-plugin.so",
           application.properties, application.id, application.id, application.assembly}};
}

}  // namespace quillon::bench
