// How an application ended, and how its client ends the same way.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillon::launchpad {

struct ExitState {
  bool bySignal = false;
  int number = 0;  // exit status, or signal number
};

std::string encode(const ExitState& state);
// Returns nullopt if the bytes are malformed or no process can end so.
std::optional<ExitState> decodeExitState(std::string_view bytes);

// Ends the calling process the same way: returns the exit status to use, or kills the process by
// the signal. Disables the core dump of the calling process, because the application's own is the
// useful one.
int exitAs(const ExitState& state);

// Kills the calling process by a signal. Returns if the signal's default action does not end a
// process.
void killSelfBy(int signal);

}  // namespace quillon::launchpad
