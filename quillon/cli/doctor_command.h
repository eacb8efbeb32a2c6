// quillon doctor
#pragma once

namespace CLI {
class App;
}

namespace quillon::cli {

// Adds "doctor", which examines the machine and a device root.
void addDoctorCommand(CLI::App& app);

}  // namespace quillon::cli
