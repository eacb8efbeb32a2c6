// Launches the built plug-in in a fresh device root, and collects its results, log records, launch
// markers and files.
#pragma once

#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/skip.h"
#include "tests/system/device_root/inside.h"

namespace quillon::test {

// A record of the platform log.
struct DeviceRecord {
  int priority;
  std::string tag;
  std::string text;

  [[nodiscard]] std::string message() const;  // without origin, colour and line end
  [[nodiscard]] bool isTrace() const;         // entry or exit of a function
};

// The results of a launch.
struct DriverRun {
  int status = -1;
  std::string output;                   // unparsed, for failure messages
  std::vector<nlohmann::json> results;  // one per finished step
  std::vector<DeviceRecord> log;
  std::vector<std::string> markers;  // texts written to the kernel's launch-marker channel
  std::vector<std::string> spans;    // names of the trace's spans, ordered by their begin

  // Returns the result of the n-th step of that name.
  [[nodiscard]] nlohmann::json result(const std::string& step, int n = 0) const;
  // Returns all log lines except trace lines, as "4 message".
  [[nodiscard]] std::vector<std::string> lines() const;
  // Returns the same from the line `first` on; empty if there is no such line.
  [[nodiscard]] std::vector<std::string> linesFrom(const std::string& first) const;
  [[nodiscard]] std::vector<std::string> messages(int priority) const;
};

class DeviceLaunch : public DeviceRootTest {
 protected:
  // Creates the folders of a device, without flag files and caches. An override must return early
  // if the test is already skipped.
  void SetUp() override;

  // Writes a file by its device path. Creates missing folders.
  void put(const std::string& path, const std::string& content = "x");
  std::filesystem::path onMachine(const std::string& path) const;
  std::string read(const std::string& path) const;
  bool exists(const std::string& path) const;

  // Writes two equal copies of the runtime flag file, so that the plug-in keeps its caches.
  void keepCaches();

  // Installs a package at the begin of the next launch. For the manifest text see
  // docs/package-manifest.md.
  void install(const std::string& manifest);
  // Installs a package with one application of the same id and with metadata lines such as
  // '"/key" = "value"'.
  void installApplication(const std::string& id, const std::string& metadata = "",
                          bool privileged = true);

  // The same, with the executable /opt/usr/apps/ID/bin/A.dll, at once.
  void makeApplication(const std::string& id, const std::string& metadata = "");

  // Runs the driver inside, as a process of `package` if that is not empty.
  DriverRun run(const std::vector<std::string>& steps, const std::string& package = "");

  // The driver and the plug-in of the launches, as they are called inside.
  std::string driver_ = QUILLON_DRIVER;
  std::string plugin_ = QUILLON_PLUGIN;

 private:
  std::vector<std::string> manifests_;
};

}  // namespace quillon::test
