// The setup for the contenders: a device root with both applications, and the paths of the
// programs.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "bench/launch/place.h"
#include "quillon/base/failure.h"

namespace quillon::bench {

// Reference contenders, which others are compared with.
inline constexpr char kStockHost[] = "dotnet APP.dll";
inline constexpr char kBareHost[] = "bare host, lists given";
inline constexpr char kDirectLaunch[] = "quillon launch --direct --raw";

struct Application {
  std::string title;
  std::string id;
  std::string assembly;  // device paths
  std::string appHost;
  std::string properties;  // file with the runtime's properties, for the bare host
  double directAim = 0;    // target for the ratio of a direct launch to the stock host
};

struct Setup {
  std::filesystem::path build;         // the build folder
  std::filesystem::path work;          // temporary folder of the benchmark
  std::filesystem::path device;        // device root in it
  std::filesystem::path dotnet;        // the stock host's command
  std::filesystem::path hostResolver;  // its libhostfxr.so
  std::string runtimeVersion;
  std::vector<Application> applications;

  std::filesystem::path quillon() const { return build / "bin/quillon"; }
  // The program that the launch pad runs, and a client has to name.
  std::filesystem::path fullProgram() const { return build / "libexec/quillon"; }
  std::filesystem::path program(const char* name) const { return build / "bench" / name; }
};

// Makes the device root in `work`, installs both applications, and writes the runtime properties
// that the launcher uses for each of them to a file.
[[nodiscard]] Expected<Setup> makeSetup(const std::filesystem::path& build,
                                        const std::filesystem::path& work);

// All contenders for one application.
std::vector<Contender> contendersOf(const Setup& setup, const Application& application);

// The stock host, until it has resolved the runtime's properties.
Contender stockResolutionOf(const Setup& setup, const Application& application);

// A program that times each call of the plug-in.
Contender pluginCallsOf(const Setup& setup, const Application& application);

}  // namespace quillon::bench
