// The front of the quillon program; see full_program.h.
#include <optional>
#include <string>

#include "quillon/base/terminal.h"
#include "quillon/cli/front/display.h"
#include "quillon/cli/front/full_program.h"
#include "quillon/cli/front/plain_launch.h"
#include "quillon/cli/front/prepared_launch.h"
#include "quillon/prefetch/background_read_ahead.h"
#include "workstation/inside_device.h"
#include "workstation/log_config.h"

namespace {

using quillon::host::LaunchOptions;

// The reading takes place while the full program starts and enters the device root.
void readAhead(const LaunchOptions& options, const std::string& program) {
  if (quillon::prefetch::isCold(program)) {
    const bool isInside = !quillon::workstation::pathOfDevice().empty();
    quillon::prefetch::readAheadInBackground(isInside ? "/" : options.device.string(),
                                             options.appId);
  }
}

}  // namespace

int main(int argc, char** argv) {
  quillon::openStandardDescriptors();
  const std::string program = quillon::cli::fullProgram();
  const auto options = quillon::cli::plainLaunch({argv, argv + argc});
  if (options && options->direct) {
    readAhead(*options, program);
  }
  if (!options || options->direct || options->detach) {
    return quillon::cli::runFullProgram(program, argv, false);
  }
  const auto log = quillon::workstation::openLogOfEnvironment();
  if (!log) {
    return quillon::cli::runFullProgram(program, argv, false);
  }
  quillon::keepTerminal();
  quillon::cli::prepareDisplay(*options);
  if (const auto ended = quillon::cli::launchPrepared(*options, *log, program)) {
    return *ended;
  }
  readAhead(*options, program);
  return quillon::cli::runFullProgram(program, argv, true);
}
