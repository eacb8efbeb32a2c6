// Tests of code that uses fixed device paths. The whole test program runs inside its own device
// root (device_main.cc), with the in-memory platform.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/device_main.h"
#include "tests/support/recording_platform.h"
#include "tests/support/skip.h"

namespace quillon::test {

// The content of the runtime flag file's read-only copy.
inline constexpr char kDotnetFlag[] = "1\n";

// Starts with no files in the folders that the tests write to, except the writable copy of the flag
// file. Because of that copy the plug-in keeps the caches.
class DeviceTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    if (!whyOutside().empty()) {
      QUILLON_SKIP("no device root: " << whyOutside());
    }
    for (const char* folder : {"/opt/usr", "/opt/data", "/opt/etc", "/usr/share/dotnet.velora"}) {
      for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::filesystem::remove_all(entry.path());
      }
    }
    std::filesystem::create_directories("/opt/usr/home/owner/share/dotnet");
    makeFile("/opt/etc/dotnet_flag.ini", kDotnetFlag);
  }

  static void makeFile(const std::filesystem::path& path, const std::string& content = "") {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
  }

  // Returns the messages with their priority that begin with `start`, without trace lines.
  static std::vector<std::string> linesThatBegin(const std::string& start) {
    std::vector<std::string> result;
    for (const std::string& line : platform().lines()) {
      if (line.compare(0, start.size(), start) == 0) {
        result.push_back(line);
      }
    }
    return result;
  }
};

}  // namespace quillon::test
