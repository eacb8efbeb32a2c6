// The quillon program: a plain launch is its own, everything else its commands'.
#include <dlfcn.h>

#include <string>

#include "launcher/launch.h"
#include "launcher/plain_launch.h"
#include "tools/commands.h"
#include "tools/report.h"

namespace {

int runCommands(int argc, char** argv) {
  void* const library = dlopen(kCommandsLibrary, RTLD_LAZY | RTLD_LOCAL);
  auto* const run = library == nullptr ? nullptr
                                       : reinterpret_cast<decltype(&quillon_commands)>(
                                             dlsym(library, kCommandsFunction));
  if (run != nullptr) return run(argc, argv);
  return quillon::report({std::string("cannot load its commands: ") + dlerror(), "install it again"},
                         quillon::kServiceFailed);
}

}  // namespace

int main(int argc, char** argv) {
  if (const auto options = quillon::launcher::plainLaunch({argv, argv + argc})) {
    return quillon::launcher::launch(*options);
  }
  return runCommands(argc, argv);
}
