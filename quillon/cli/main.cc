// The quillon program: a plain launch is its own, everything else its commands'.
#include <dlfcn.h>

#include <filesystem>
#include <string>

#include "quillon/base/files.h"
#include "quillon/base/report.h"
#include "quillon/cli/commands.h"
#include "quillon/cli/plain_launch.h"
#include "quillon/cli/run_launch.h"
#include "quillon/host/launch.h"
#include "quillon/host/plugin/plugin_library.h"

namespace {

// By its path: a sanitizer's dlopen() would look where the sanitizer's libraries are.
std::filesystem::path commandsLibrary() {
  std::error_code ignored;
  return quillon::host::libraryOf(quillon::executablePath(), kCommandsLibrary);
}

int runCommands(int argc, char** argv) {
  void* const library = dlopen(commandsLibrary().c_str(), RTLD_LAZY | RTLD_LOCAL);
  auto* const run =
      library == nullptr
          ? nullptr
          : reinterpret_cast<decltype(&quillon_commands)>(dlsym(library, kCommandsFunction));
  if (run != nullptr) return run(argc, argv);
  return quillon::report(
      {std::string("cannot load its commands: ") + dlerror(), "install it again"});
}

}  // namespace

int main(int argc, char** argv) {
  if (const auto options = quillon::cli::plainLaunch({argv, argv + argc})) {
    return quillon::cli::runLaunch(*options, quillon::host::launch);
  }
  return runCommands(argc, argv);
}
