// Launches of the built plug-in in a device root of the test's own, seen from outside: what it
// returned, logged, marked and left behind.
#pragma once

#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/device_root/inside.h"
#include "tests/support/skip.h"

namespace quillon::test {

// One record of the platform log.
struct DeviceRecord {
  int priority;
  std::string tag;
  std::string text;

  [[nodiscard]] std::string message() const;  // without origin, colour and line end
  [[nodiscard]] bool isTrace() const;         // entry or exit of a function
};

// What came of one launch.
struct DriverRun {
  int status = -1;
  std::string output;                   // as printed; for failures
  std::vector<nlohmann::json> results;  // one a step that was finished
  std::vector<DeviceRecord> log;
  std::vector<std::string> markers;  // texts of the kernel's launch-marker channel
  std::vector<std::string> spans;    // names of the trace's spans, in the order of their begin

  // Result of the n-th step of that name.
  [[nodiscard]] nlohmann::json result(const std::string& step, int n = 0) const;
  // All lines but trace lines, as "4 message".
  [[nodiscard]] std::vector<std::string> lines() const;
  // The same, from the line `first` on; empty when it is not there.
  [[nodiscard]] std::vector<std::string> linesFrom(const std::string& first) const;
  [[nodiscard]] std::vector<std::string> messages(int priority) const;
};

class DeviceLaunch : public DeviceRootTest {
 protected:
  // The folders that a device has; no flag files, no caches. A class that does more returns first
  // where the test is skipped already.
  void SetUp() override;

  // A file of the device, by its device path; missing folders are made.
  void put(const std::string& path, const std::string& content = "x");
  std::filesystem::path onMachine(const std::string& path) const;
  std::string read(const std::string& path) const;
  bool exists(const std::string& path) const;

  // The two copies of the runtime flag file alike, so that caches are kept.
  void keepCaches();

  // Installs a package when the next launch begins: manifest text, see docs/package-manifest.md.
  void install(const std::string& manifest);
  // A package of one application of the same id, with metadata lines like '"/key" = "value"'.
  void installApplication(const std::string& id, const std::string& metadata = "",
                          bool privileged = true);

  // Runs the driver inside, as a process of `package` where that is not empty.
  DriverRun run(const std::vector<std::string>& steps, const std::string& package = "");

 private:
  std::vector<std::string> manifests_;
};

}  // namespace quillon::test
