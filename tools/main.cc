// The quillon program: a plain launch is its own, everything else its commands'.
#include <dlfcn.h>

#include <filesystem>
#include <string>

#include "launcher/launch.h"
#include "launcher/plain_launch.h"
#include "launcher/plugin_library.h"
#include "tools/commands.h"
#include "tools/report.h"

namespace {

// By its path: a sanitizer's dlopen() would look where the sanitizer's libraries are.
std::filesystem::path commandsLibrary() {
  std::error_code ignored;
  return quillon::launcher::libraryOf(std::filesystem::read_symlink("/proc/self/exe", ignored),
                                      kCommandsLibrary);
}

int runCommands(int argc, char** argv) {
  void* const library = dlopen(commandsLibrary().c_str(), RTLD_LAZY | RTLD_LOCAL);
  auto* const run =
      library == nullptr
          ? nullptr
          : reinterpret_cast<decltype(&quillon_commands)>(dlsym(library, kCommandsFunction));
  if (run != nullptr) return run(argc, argv);
  return quillon::report(
      {std::string("cannot load its commands: ") + dlerror(), "install it again"},
      quillon::kServiceFailed);
}

}  // namespace

int main(int argc, char** argv) {
  if (const auto options = quillon::launcher::plainLaunch({argv, argv + argc})) {
    return quillon::launcher::launch(*options);
  }
  return runCommands(argc, argv);
}
