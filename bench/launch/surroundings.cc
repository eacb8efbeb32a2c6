#include "bench/launch/surroundings.h"

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

// Quoted for the shell: every path here is the bench's own or the build's.
std::string quoted(const fs::path& path) { return "'" + path.string() + "'"; }

// Standard output; a command that fails has said why on standard error.
Expected<std::string> outputOf(const std::string& command) {
  std::FILE* const stream = popen(command.c_str(), "re");
  if (stream == nullptr) return fail("cannot run " + command, kRemedy);
  std::string output;
  std::array<char, 4096> bytes{};
  while (const size_t count = std::fread(bytes.data(), 1, bytes.size(), stream)) {
    output.append(bytes.data(), count);
  }
  if (pclose(stream) == 0) return output;
  return fail("failed: " + command, kRemedy);
}

Expected<void> findHost(Surroundings& surroundings) {
  const auto framework = dotnet::findFramework();
  if (!framework) return tl::unexpected(framework.error());
  const fs::path root = framework->directory.parent_path().parent_path().parent_path();
  surroundings.runtimeVersion = framework->version;
  surroundings.dotnet = root / "dotnet";
  surroundings.hostResolver = root / "host/fxr" / framework->version / "libhostfxr.so";
  for (const fs::path& file : {surroundings.dotnet, surroundings.hostResolver}) {
    if (!fs::exists(file)) {
      return fail("the stock host's '" + file.string() + "' is missing",
                  "install a .NET SDK, or name its folder: DOTNET_ROOT");
    }
  }
  return {};
}

Expected<void> makeDevice(const Surroundings& surroundings) {
  const auto made =
      outputOf(quoted(surroundings.quillon()) + " device init " + quoted(surroundings.device));
  if (!made) return tl::unexpected(made.error());
  return {};
}

// The launcher's own plan, so that the bare host starts the very same runtime.
Expected<void> writeProperties(const Surroundings& surroundings, const Application& application) {
  const auto plan = outputOf(quoted(surroundings.quillon()) + " launch --plan --json --device " +
                             quoted(surroundings.device) + " " + application.id);
  if (!plan) return tl::unexpected(plan.error());
  const auto json = nlohmann::ordered_json::parse(*plan, nullptr, false);
  std::ofstream file(application.properties);
  for (const auto& [name, value] : json.at("properties").items()) {
    file << name << '=' << value.get<std::string>() << '\n';
  }
  return {};
}

Expected<void> install(Surroundings& surroundings, const std::string& title,
                       const std::string& name, const std::string& program, double directAim) {
  const std::string id = "org.velora.bench." + name;
  const auto installed = outputOf(
      quoted(surroundings.quillon()) + " package install --device " + quoted(surroundings.device) +
      " " + quoted(surroundings.build / "bench/launch/sample/packages" / (id + ".toml")));
  if (!installed) return tl::unexpected(installed.error());
  const std::string stem = "/opt/usr/apps/" + id + "/bin/" + program;
  surroundings.applications.push_back({title, id, stem + ".dll", stem,
                                       (surroundings.work / (name + ".properties")).string(),
                                       directAim});
  return writeProperties(surroundings, surroundings.applications.back());
}

std::vector<std::string> launchCommand(const Surroundings& surroundings,
                                       const Application& application,
                                       const std::vector<std::string>& more) {
  std::vector<std::string> command = {surroundings.quillon(), "launch", "--device",
                                      surroundings.device, application.id};
  command.insert(command.end(), more.begin(), more.end());
  command.emplace_back("--");
  return command;
}

std::vector<Contender> directLaunchesOf(const Surroundings& surroundings,
                                        const Application& application) {
  const auto launch = [&](std::vector<std::string> more) {
    more.insert(more.begin(), "--direct");
    return launchCommand(surroundings, application, more);
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

std::vector<Contender> preparedLaunchesOf(const Surroundings& surroundings,
                                          const Application& application) {
  const auto raw = launchCommand(surroundings, application, {"--raw"});
  const auto captured = launchCommand(surroundings, application, {});
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
  all[0].asking = {surroundings.quillon(), surroundings.device, application.id};
  all[3].pool = all[4].pool = Pool::kEmpty;
  all[3].aims = {{kDirectLaunch, 1.05}};
  all[4].aims = {{kCapturedLaunch, 1.05}};
  return all;
}

}  // namespace

Expected<Surroundings> makeSurroundings(const fs::path& build, const fs::path& work) {
  Surroundings surroundings;
  surroundings.build = build;
  surroundings.work = work;
  surroundings.device = work / "device";
  if (auto found = findHost(surroundings); !found) return tl::unexpected(found.error());
  if (auto made = makeDevice(surroundings); !made) return tl::unexpected(made.error());
  if (auto put = install(surroundings, "console application", "hello", "Hello", 0.97); !put) {
    return tl::unexpected(put.error());
  }
  if (auto put = install(surroundings, "with 200 assemblies of its own", "many", "Many", 0.92);
      !put) {
    return tl::unexpected(put.error());
  }
  return surroundings;
}

std::vector<Contender> contendersOf(const Surroundings& surroundings,
                                    const Application& application) {
  const auto directs = directLaunchesOf(surroundings, application);
  const auto prepared = preparedLaunchesOf(surroundings, application);
  std::vector<Contender> all = {
      {kStockHost, {surroundings.dotnet, application.assembly}},
      {"the application's apphost", {application.appHost}},
      {kBareHost,
       {surroundings.program("bare_host"), application.properties, application.assembly}}};
  all.insert(all.end(), directs.begin(), directs.end());
  all.insert(all.end(), prepared.begin(), prepared.end());
  return all;
}

Contender stockResolutionOf(const Surroundings& surroundings, const Application& application) {
  return {"stock resolution",
          {surroundings.program("stock_resolution"), surroundings.hostResolver,
           surroundings.dotnet.parent_path(), application.assembly}};
}

Contender pluginCallsOf(const Surroundings& surroundings, const Application& application) {
  return {"plug-in's calls",
          {surroundings.program("plugin_calls"), surroundings.build / "lib/libquillon-tv-plugin.so",
           application.properties, application.id, application.id, application.assembly}};
}

}  // namespace quillon::bench
