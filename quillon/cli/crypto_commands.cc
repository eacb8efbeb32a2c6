#include "quillon/cli/command_line.h"
#include "quillon/cli/commands.h"
#include "quillon/cli/partner_command.h"
#include "quillon/cli/validator_command.h"

namespace quillon::cli {
namespace {

constexpr Command kCommands[] = {{"partner", addPartnerCommand},
                                 {"validator", addValidatorCommand}};

}  // namespace
}  // namespace quillon::cli

int quillon_commands(int argc, char** argv) {
  return quillon::cli::runCommandLine(argc, argv, quillon::cli::kCommands);
}
