#include "tests/fuzz/memory_folders.h"

#include <dirent.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace {

quillon::fuzz::MemoryFolders::Folders folders;

// An open folder in memory. The code under test sees its address as a DIR.
struct OpenFolder {
  const std::vector<std::string>* names = nullptr;
  std::size_t next = 0;
  dirent entry{};
};
std::vector<OpenFolder*> openFolders;

OpenFolder* openFolderAt(DIR* directory) {
  const auto found = std::find_if(openFolders.begin(), openFolders.end(), [&](OpenFolder* each) {
    return reinterpret_cast<DIR*>(each) == directory;
  });
  return found == openFolders.end() ? nullptr : *found;
}

}  // namespace

// The linker's names: "__wrap_x" is called instead of x, "__real_x" is x.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
DIR* __real_opendir(const char* path);
dirent* __real_readdir(DIR* directory);
int __real_closedir(DIR* directory);

DIR* __wrap_opendir(const char* path) {
  const auto folder = folders.find(path);
  if (folder == folders.end()) {
    return __real_opendir(path);
  }
  openFolders.push_back(new OpenFolder{&folder->second});
  return reinterpret_cast<DIR*>(openFolders.back());
}

dirent* __wrap_readdir(DIR* directory) {
  OpenFolder* const folder = openFolderAt(directory);
  if (folder == nullptr) {
    return __real_readdir(directory);
  }
  if (folder->next == folder->names->size()) {
    return nullptr;
  }
  const std::string& name = folder->names->at(folder->next++);
  folder->entry.d_type = DT_REG;
  folder->entry.d_name[name.copy(folder->entry.d_name, sizeof folder->entry.d_name - 1)] = '\0';
  return &folder->entry;
}

int __wrap_closedir(DIR* directory) {
  OpenFolder* const folder = openFolderAt(directory);
  if (folder == nullptr) {
    return __real_closedir(directory);
  }
  std::erase(openFolders, folder);
  delete folder;
  return 0;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace quillon::fuzz {

MemoryFolders::MemoryFolders(Folders all) { folders = std::move(all); }
MemoryFolders::~MemoryFolders() { folders.clear(); }

}  // namespace quillon::fuzz
