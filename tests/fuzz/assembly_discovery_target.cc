// The search for assemblies, with arbitrary file names. Input: the list to append to, then one line
// for each file: "1" or "2" for its folder, and its name.
#include <algorithm>
#include <filesystem>
#include <fstream>

#include "plugin/src/plugin-util/assembly_discovery.h"
#include "tests/fuzz/target.h"
#include "tests/support/temporary_directory.h"
#include "util/zq_utils/directory_walk.h"

namespace {

namespace fs = std::filesystem;

constexpr int kMaxFiles = 16;

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

std::string model(const std::vector<std::string>& folders, std::string list) {
  std::vector<Found> all;
  for (const std::string& folder : folders) {
    for (const auto& entry : fs::directory_iterator(folder)) {
      offer(all, folder, entry.path().filename().string());
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

void makeFiles(const std::vector<std::string>& folders, quillon::fuzz::Input input) {
  for (int made = 0; made < kMaxFiles && !input.atEnd();) {
    const std::string_view line = input.line();
    if (line.empty() || !canNameAFile(line.substr(1))) {
      continue;
    }
    const std::string& folder = folders[line[0] == '2' ? 1 : 0];
    std::ofstream(folder + "/" + std::string(line.substr(1)));
    ++made;
  }
}

}  // namespace

FUZZ_TARGET(assembly_discovery) {
  static const quillon::test::TemporaryDirectory directory;
  const std::vector<std::string> folders = {directory.path() / "1", directory.path() / "2"};
  for (const std::string& folder : folders) {
    fs::remove_all(folder);
    fs::create_directory(folder);
  }
  Input input(bytes);
  const std::string before(input.line());
  makeFiles(folders, input);

  std::string list = before;
  addAssembliesFromDirectories(folders, list);
  FUZZ_REQUIRE(list == model(folders, before));
}
