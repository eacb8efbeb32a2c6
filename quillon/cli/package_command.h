// quillon package: installs, removes and lists the packages of a device root.
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

// Adds "package" with "install", "remove" and "list".
void addPackageCommand(CLI::App& app);

}  // namespace quillon::cli
