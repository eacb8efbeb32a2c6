// The quillon command: every subcommand in one list.
#include <CLI/CLI.hpp>

#include "tools/command.h"
#include "tools/device_command.h"
#include "tools/report.h"

namespace {

void addCommands(CLI::App& app) { quillon::addDeviceCommand(app); }

// Help and version end with 0; what CLI11 could not understand becomes one line.
int endOfParse(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) return app.exit(error);
  return quillon::report({error.what(), "see quillon --help"}, quillon::kUsage);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Runs and tends managed applications on a workstation as a device would."};
  app.name("quillon");
  app.set_version_flag("--version", "quillon " QUILLON_VERSION);
  app.require_subcommand(1);
  addCommands(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::RuntimeError& end) {
    return end.get_exit_code();
  } catch (const CLI::ParseError& error) {
    return endOfParse(app, error);
  }
  return quillon::kSuccess;
}
