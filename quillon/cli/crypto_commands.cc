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
  // The values of their options are files.
  const auto noValues = [](const std::string&, const std::string&) {
    return quillon::cli::Words();
  };
  return quillon::cli::runCommandLine(argc, argv, quillon::cli::kCommands, noValues);
}
