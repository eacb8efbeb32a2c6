#include "quillon/host/runtime/framework_check.h"

#include <array>
#include <cstdlib>
#include <filesystem>

#include "device_paths.h"
#include "quillon/base/shell_word.h"

namespace quillon::host {
namespace {

namespace fs = std::filesystem;

// Major, minor and patch version. Ignores a suffix, so a preview compares equal to its release.
std::array<long, 3> numbersOf(const std::string& version) {
  std::array<long, 3> numbers{};
  const char* rest = version.c_str();
  for (long& number : numbers) {
    char* end = nullptr;
    number = std::strtol(rest, &end, 10);
    if (end == rest || *end != '.') {
      break;
    }
    rest = end + 1;
  }
  return numbers;
}

std::string nameOf(const std::string& version) {
  return "Microsoft.NETCore.App" + (version.empty() ? "" : " " + version);
}

bool hasRuntime() {
  std::error_code ignored;
  return fs::exists(fs::path(device_paths::kNetcoreapp) / "libcoreclr.so", ignored);
}

std::string describeFolder() {
  std::error_code ignored;
  const fs::path framework = device_paths::kNetcoreapp;
  if (!fs::exists(framework, ignored)) {
    return "no such folder";
  }
  return fs::is_empty(framework, ignored) ? "an empty folder" : "a folder without libcoreclr.so";
}

std::string remedy(const std::string& device) {
  return "install a .NET runtime, then: quillon device init " + shellWord(device);
}

}  // namespace

bool serves(const std::string& found, const std::string& wanted) {
  return found.empty() || wanted.empty() || numbersOf(found) >= numbersOf(wanted);
}

Expected<void> requireFramework(const std::string& wantedVersion, const std::string& foundVersion,
                                const std::string& device) {
  const std::string where =
      std::string("at '") + device_paths::kNetcoreapp + "' of the device root '" + device + "'";
  if (!hasRuntime()) {
    return fail(kNoRuntime, {"no .NET runtime: wanted " + nameOf(wantedVersion) + ", found " +
                                 describeFolder() + " " + where,
                             remedy(device)});
  }
  if (!serves(foundVersion, wantedVersion)) {
    return fail(kNoRuntime, {"the .NET runtime is too old: wanted " + nameOf(wantedVersion) +
                                 ", found " + nameOf(foundVersion) + " " + where,
                             remedy(device)});
  }
  return {};
}

}  // namespace quillon::host
