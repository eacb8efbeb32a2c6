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
inline constexpr char kPreparedMessage[] = "prepared, from the message";
inline constexpr char kOwnMessage[] = "own worker, from the message";

// Contenders that time themselves.
inline constexpr char kStockResolution[] = "stock resolution";
inline constexpr char kPluginCalls[] = "plug-in's calls";
inline constexpr char kOwnCalls[] = "plug-in's calls, silent platform";

// The option of a launch pad that can prepare processes for one application.
inline constexpr char kMemoryOption[] = "--memory";

struct Application {
  std::string title;
  std::string id;
  std::string assembly;  // device paths
  std::string appHost;
  std::string properties;   // file with the runtime's properties, for the bare host
  double directAim = 0;     // target for the ratio of a direct launch to the stock host
  bool onTerminal = false;  // its streams are a pseudo terminal, not pipes
};

// The kind of a setup's launch pad: kGeneric prepares processes that fit every application of a
// pool, kOwn also those that are prepared for one application.
enum class Workers { kGeneric, kOwn };

struct Setup {
  std::filesystem::path build;         // the measured build folder
  std::filesystem::path ownBuild;      // that of the benchmark, with its samples and programs
  std::filesystem::path work;          // temporary folder of the benchmark
  std::filesystem::path device;        // device root in it
  std::filesystem::path dotnet;        // the stock host's command
  std::filesystem::path hostResolver;  // its libhostfxr.so
  std::string runtimeVersion;
  Workers workers = Workers::kGeneric;
  std::vector<Application> applications;

  std::filesystem::path quillon() const { return build / "bin/quillon"; }
  // The program that the launch pad runs, and a client has to name: quillon() itself in an older
  // build.
  std::filesystem::path fullProgram() const;
  std::filesystem::path program(const char* name) const { return ownBuild / "bench" / name; }
  // A program that belongs to the measured build; the benchmark's, if that build has none.
  std::filesystem::path programOfBuild(const char* name) const;
};

// Quotes a path for the shell. Paths of the benchmark and the build contain no quotes.
std::string quoted(const std::filesystem::path& path);

// Runs a command and returns its standard output. A failing command reports on standard error.
[[nodiscard]] Expected<std::string> outputOf(const std::string& command);

// Makes the device root in `work`, installs both applications, and writes the runtime properties
// that the launcher uses for each of them to a file.
[[nodiscard]] Expected<Setup> makeSetup(const std::filesystem::path& build,
                                        const std::filesystem::path& work,
                                        Workers workers = Workers::kGeneric);

// Whether the build's launch pad can prepare processes for one application.
bool hasOwnWorkers(const std::filesystem::path& build);

// All contenders for one application. With Workers::kOwn, only those that such a process serves.
std::vector<Contender> contendersOf(const Setup& setup, const Application& application);

}  // namespace quillon::bench
