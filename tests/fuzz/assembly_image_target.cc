// The launcher's reader of an application's image. Input: the image.
#include <filesystem>

#include "quillon/host/assemblies/assembly_image.h"
#include "quillon/host/assemblies/module_initializer.h"
#include "tests/fuzz/memory_file.h"
#include "tests/fuzz/target.h"

using quillon::host::hasModuleInitializer;
using quillon::host::imageError;
using quillon::host::requireExecutableAssembly;

FUZZ_TARGET(assembly_image) {
  const std::string_view wrong = imageError(bytes);
  static MemoryFile file("");
  file.replace(bytes);
  FUZZ_REQUIRE(hasModuleInitializer(bytes) ==
               hasModuleInitializer(std::filesystem::path(file.path())));
  const auto required = requireExecutableAssembly(file.path());
  FUZZ_REQUIRE(required.has_value() == wrong.empty());
  if (!wrong.empty()) {
    const std::string& what = required.error().what;
    const std::string start = "the runtime cannot run '" + file.path() + "': ";
    FUZZ_REQUIRE(what == start + std::string(wrong) ||
                 (bytes.starts_with("\x7f"
                                    "ELF") &&
                  what == start + "it is a native program, not an assembly"));
    return;
  }
  FUZZ_REQUIRE(bytes.starts_with("MZ"));
  FUZZ_REQUIRE(bytes.find(std::string_view("PE\0\0", 4)) != bytes.npos);
  // Bytes after an image do not change the result. An image without its start is invalid.
  FUZZ_REQUIRE(imageError(std::string(bytes) + std::string(64, '\xff')).empty());
  FUZZ_REQUIRE(!imageError(bytes.substr(1)).empty() || bytes.substr(1).starts_with("MZ"));
  FUZZ_REQUIRE(!imageError(bytes.substr(0, 0x40)).empty());
}
