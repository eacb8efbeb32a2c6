#include "tests/system/torture/device_files.h"

#include <algorithm>
#include <fstream>
#include <iterator>

#include "device_paths.h"

namespace quillon::torture {
namespace {

namespace fs = std::filesystem;

void makeFolder(const fs::path& folder, const std::string& stem, int files) {
  fs::create_directories(folder);
  for (int file = 0; file < files; ++file) {
    std::ofstream(folder / (stem + std::to_string(file) + ".dll"));
  }
}

void append(std::string& list, const fs::path& folder) {
  if (!fs::is_directory(folder)) {
    return;
  }
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() == ".dll") {
      list += (list.empty() ? "" : ":") + entry.path().string();
    }
  }
}

}  // namespace

void makeAssemblies() {
  makeFolder(device_paths::kNetcoreapp, "Velora.Runtime.Assembly", 160);
  makeFolder(device_paths::kReflectionEliminator, "Velora.Eliminated", 2);
  makeFolder(device_paths::kFramework, "Velora.Framework.Assembly", 40);
  makeFolder(std::string(device_paths::kFramework) + device_paths::kReferenceSuffix,
             "Velora.Reference", 3);
  makeFolder(device_paths::kPlatformLibraries, "Velora.Library", 5);
  makeFolder(device_paths::kTvAppApi, "Velora.Tv", 5);
  fs::create_directories(device_paths::kCacheDirectory);
}

std::string expectedList() {
  std::string list;
  append(list, device_paths::kNetcoreapp);
  append(list, device_paths::kReflectionEliminator);
  append(list, device_paths::kFramework);
  append(list, std::string(device_paths::kFramework) + device_paths::kReferenceSuffix);
  append(list, device_paths::kPlatformLibraries);
  append(list, device_paths::kTvAppApi);
  return list;
}

fs::path cachePath() { return device_paths::kTpaCache; }

fs::path temporaryPath() {
  return std::string(device_paths::kCacheDirectory) + "temp_" + device_paths::kTpaCacheName;
}

void writeFile(const fs::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

std::optional<std::string> readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return std::nullopt;
  }
  return std::string(std::istreambuf_iterator<char>(file), {});
}

std::string whole(const std::string& payload) { return "[START]" + payload + "[END]"; }

void clearCaches() {
  for (const auto& entry : fs::directory_iterator(device_paths::kCacheDirectory)) {
    fs::remove_all(entry.path());
  }
}

std::vector<std::string> namesInCacheDirectory() {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(device_paths::kCacheDirectory)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace quillon::torture
