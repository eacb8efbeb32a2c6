// Process state that exec() inherits and that a worker cannot adopt from a client.
//
// A worker may serve a launch only if this state is equal in the client and in the server. The
// application could otherwise observe the difference.
#pragma once

#include <string>
#include <string_view>

#include "quillon/launchpad/state/proc_self.h"

namespace quillon::launchpad {

// Pairs of texts (quillon/base/record.h): a name for messages to the user, and a value.
using ProcessState = std::string;

// The state of the calling process. Call before it enters a device root. Empty if /proc lacks a
// value that must be compared.
//
// program  file of the quillon program, for a client that is another program. Empty: the running
//          program.
ProcessState processStateOf(const ProcSelf& process, const std::string& program = {});

// The name of the first value that differs. Empty if the states are equal.
std::string firstDifference(const ProcessState& one, const ProcessState& other);

// Whether the runtime, the loader or the C library reads an environment variable before Main.
bool isReadAtStart(std::string_view variable);

}  // namespace quillon::launchpad
