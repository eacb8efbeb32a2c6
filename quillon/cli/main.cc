// The full quillon program, which the front (front/main.cc) executes. It handles plain launches
// itself and loads the commands for everything else.
#include <dlfcn.h>
#include <unistd.h>

#include <new>
#include <string>
#include <string_view>

#include "quillon/base/exit_status.h"
#include "quillon/base/files.h"
#include "quillon/base/report.h"
#include "quillon/base/terminal.h"
#include "quillon/cli/commands.h"
#include "quillon/cli/front/full_program.h"
#include "quillon/cli/front/plain_launch.h"
#include "quillon/cli/run_launch.h"
#include "quillon/host/launch.h"

namespace {

int runCommands(int argc, char** argv) {
  // By its path, since a sanitizer's dlopen() searches the sanitizer's run path instead of ours.
  const auto file = quillon::libraryOf(quillon::executablePath(), commandsLibraryOf(argc, argv));
  void* const library = dlopen(file.c_str(), RTLD_LAZY | RTLD_LOCAL);
  auto* const run =
      library == nullptr
          ? nullptr
          : reinterpret_cast<decltype(&quillon_commands)>(dlsym(library, kCommandsFunction));
  if (run != nullptr) {
    return run(argc, argv);
  }
  return quillon::report(
      {std::string("cannot load the commands: ") + dlerror(), "install it again"});
}

// Needs no memory.
int reportOutOfMemory() {
  constexpr std::string_view kLine =
      "quillon: out of memory; end other programs or raise the memory limit\n";
  [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kLine.data(), kLine.size());
  return quillon::kServiceFailed;
}

}  // namespace

int main(int argc, char** argv) try {
  quillon::openStandardDescriptors();
  if (const auto options = quillon::cli::plainLaunch({argv, argv + argc})) {
    if (quillon::cli::isDeclinedLaunch()) {
      quillon::keepTerminal();
      return quillon::host::launch(*options);
    }
    return quillon::cli::runLaunch(*options, quillon::host::launch);
  }
  return runCommands(argc, argv);
} catch (const std::bad_alloc&) {
  return reportOutOfMemory();
}
