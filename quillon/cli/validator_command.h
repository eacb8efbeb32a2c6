// quillon validator --device DIR [--plugin FILE] POLICY.toml
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

// Adds "validator", which answers requests until a signal ends it.
inline constexpr char kValidatorSummary[] = "Answer which libraries applications may load";

void addValidatorCommand(CLI::App& app);

}  // namespace quillon::cli
