// The front of the quillon program; see full_program.h.
#include <optional>

#include "quillon/base/terminal.h"
#include "quillon/cli/front/display.h"
#include "quillon/cli/front/full_program.h"
#include "quillon/cli/front/plain_launch.h"
#include "quillon/cli/front/prepared_launch.h"
#include "workstation/log_config.h"

int main(int argc, char** argv) {
  quillon::openStandardDescriptors();
  const std::string program = quillon::cli::fullProgram();
  const auto options = quillon::cli::plainLaunch({argv, argv + argc});
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
  return quillon::cli::runFullProgram(program, argv, true);
}
