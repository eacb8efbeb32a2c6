// What the contenders need: a device root with both applications, and where the programs are.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "bench/launch/place.h"
#include "quillon/base/failure.h"

namespace quillon::bench {

// Contenders that others are compared with.
inline constexpr char kStockHost[] = "dotnet APP.dll";
inline constexpr char kBareHost[] = "bare host, lists given";
inline constexpr char kDirectLaunch[] = "quillon launch --direct --raw";

struct Application {
  std::string title;
  std::string id;
  std::string assembly;  // device paths
  std::string appHost;
  std::string properties;  // file with the runtime's properties, for the bare host
  double directAim = 0;    // of a direct launch, beside the stock host
};

struct Surroundings {
  std::filesystem::path build;         // folder of the build
  std::filesystem::path work;          // temporary folder that everything lives in
  std::filesystem::path device;        // device root in it
  std::filesystem::path dotnet;        // the stock host's command
  std::filesystem::path hostResolver;  // its libhostfxr.so
  std::string runtimeVersion;
  std::vector<Application> applications;

  std::filesystem::path quillon() const { return build / "bin/quillon"; }
  std::filesystem::path program(const char* name) const { return build / "bench" / name; }
};

// Makes the device root in `work`, installs both applications, and writes what the launcher hands
// to the runtime for each of them to a file.
[[nodiscard]] Expected<Surroundings> makeSurroundings(const std::filesystem::path& build,
                                                      const std::filesystem::path& work);

// All that is timed for one application.
std::vector<Contender> contendersOf(const Surroundings& surroundings,
                                    const Application& application);

// The stock host up to the runtime's properties.
Contender stockResolutionOf(const Surroundings& surroundings, const Application& application);

// The plug-in's calls, each timed.
Contender pluginCallsOf(const Surroundings& surroundings, const Application& application);

}  // namespace quillon::bench
