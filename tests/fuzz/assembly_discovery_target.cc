// The search for assemblies, with arbitrary file names. Input: the list to append to, then one line
// for each file: "1" or "2" for its folder, and its name.
#include <algorithm>
#include <filesystem>

#include "plugin/src/plugin-util/assembly_discovery.h"
#include "tests/fuzz/memory_folders.h"
#include "tests/fuzz/target.h"
#include "util/zq_utils/directory_walk.h"

namespace {

namespace fs = std::filesystem;

using quillon::fuzz::MemoryFolders;

constexpr int kMaxFiles = 16;
constexpr char kFirst[] = "/in-memory/1";
constexpr char kSecond[] = "/in-memory/2";

bool canNameAFile(std::string_view name) {
  return !name.empty() && name.size() <= 255 && name != "." && name != ".." &&
         name.find_first_of(std::string_view("/\0", 2)) == name.npos;
}

struct Found {
  std::string name;
  std::string path;
};

// A direct implementation of the rule: the first path with a name wins, but a native image replaces
// the IL file in the same folder.
void offer(std::vector<Found>& all, const std::string& folder, const std::string& file) {
  const bool image = isNativeImage(file);
  if (!image && !isManagedAssembly(file)) {
    return;
  }
  const std::string name = getAssemblyNameFromPath(file);
  const auto known =
      std::find_if(all.begin(), all.end(), [&](const Found& one) { return one.name == name; });
  if (known == all.end()) {
    all.push_back({name, folder + "/" + file});
  } else if (image && isManagedAssembly(known->path) &&
             fs::path(known->path).parent_path() == fs::path(folder)) {
    known->path = folder + "/" + file;
  }
}

std::string model(const MemoryFolders::Folders& folders, std::string list) {
  std::vector<Found> all;
  for (const auto& [folder, files] : folders) {
    for (const std::string& file : files) {
      offer(all, folder, file);
    }
  }
  if (!all.empty() && !list.empty() && list.back() != ':') {
    list += ':';
  }
  for (const Found& one : all) {
    list += one.path + ':';
  }
  return list.substr(0, list.size() - (!list.empty() && list.back() == ':' ? 1 : 0));
}

void readFiles(MemoryFolders::Folders& folders, quillon::fuzz::Input input) {
  for (int files = 0; files < kMaxFiles && !input.atEnd();) {
    const std::string_view line = input.line();
    if (line.empty() || !canNameAFile(line.substr(1))) {
      continue;
    }
    std::vector<std::string>& names = folders[line[0] == '2' ? kSecond : kFirst];
    const std::string name(line.substr(1));
    if (std::find(names.begin(), names.end(), name) == names.end()) {
      names.push_back(name);
    }
    ++files;
  }
}

}  // namespace

FUZZ_TARGET(assembly_discovery) {
  Input input(bytes);
  const std::string before(input.line());
  MemoryFolders::Folders folders = {{kFirst, {}}, {kSecond, {}}};
  readFiles(folders, input);
  const MemoryFolders memory(folders);

  std::string list = before;
  addAssembliesFromDirectories({kFirst, kSecond}, list);
  FUZZ_REQUIRE(list == model(folders, before));
}
