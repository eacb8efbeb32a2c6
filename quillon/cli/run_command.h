// quillon run APP.dll [ARGUMENTS]
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

inline constexpr char kRunCommand[] = "run";

// Adds "run", which installs the folder of an assembly as a package if its files have changed, and
// launches it. Every argument after the assembly belongs to the application.
void addRunCommand(CLI::App& app);

}  // namespace quillon::cli
