// The environment of the launch pad's own process.
//
// Applications of workers can read it: it is their "/proc/self/environ", and part of the memory
// that they inherit. So it holds only what the launch pad and the start of the runtime need.
#pragma once

#include <string_view>

#include "quillon/base/failure.h"

namespace quillon::launchpad {

// Whether the launch pad keeps an environment variable.
bool isKept(std::string_view variable);

// If the environment holds other variables, executes the program again, with the same arguments and
// without those variables. Call first thing, because the memory of the process is then free of
// them. Returns if there are none, or if the program cannot be executed. Does so once: a preloaded
// library may set variables at every start. Those are unset.
[[nodiscard]] Expected<void> restartWithOwnEnvironment();

}  // namespace quillon::launchpad
