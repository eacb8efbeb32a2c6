// The readers of an application's NAME.runtimeconfig.json and of a framework's list of files.
// Input: the file, which both read.
#include <filesystem>

#include "quillon/host/runtime/runtime_config.h"
#include "tests/fuzz/memory_file.h"
#include "tests/fuzz/target.h"
#include "tests/support/temporary_directory.h"

namespace {

namespace fs = std::filesystem;

// Both files are one file in memory.
struct ConfigFolder {
  ConfigFolder() {
    fs::create_symlink(file.path(), folder.path() / "a.runtimeconfig.json");
    fs::create_symlink(file.path(), folder.path() / "Microsoft.NETCore.App.deps.json");
  }
  [[nodiscard]] const fs::path& path() const { return folder.path(); }

  quillon::test::TemporaryDirectory folder;
  quillon::fuzz::MemoryFile file{""};
};

}  // namespace

FUZZ_TARGET(runtime_config) {
  static ConfigFolder folder;
  folder.file.replace(bytes);

  const auto config = quillon::host::readRuntimeConfig(folder.path() / "a.dll");
  if (!config) {
    const std::string name = (folder.path() / "a.runtimeconfig.json").string();
    const std::string& what = config.error().what;
    FUZZ_REQUIRE(what == "'" + name + "' is not valid JSON" ||
                 what == "'" + name + "' is nested deeper than 64 levels" ||
                 what == "'" + name + "' has more than 4096 values");
  } else {
    FUZZ_REQUIRE(bytes.find('{') != bytes.npos);
    for (const auto& [name, value] : config->properties) {
      FUZZ_REQUIRE(!name.empty() || bytes.find("\"\"") != bytes.npos);
    }
  }
  const std::string version = quillon::host::frameworkVersionOf(folder.path());
  FUZZ_REQUIRE(version.empty() || bytes.find("Microsoft.NETCore.App.Runtime.") != bytes.npos ||
               bytes.find('\\') != bytes.npos);  // or it is written with an escape
}
