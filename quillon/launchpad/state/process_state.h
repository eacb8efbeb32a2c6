// Process state that exec() inherits and that a worker cannot adopt from a client.
//
// A worker may serve a launch only if this state is equal in the client and in the server. The
// application could otherwise observe the difference, or escape what confines the client.
//
// The observed state is what the kernel shows of another process. The server reads it itself, for
// it confines the process. The declared state is what only the process itself can read, or what no
// longer holds when its request arrives, such as its signal mask. The server takes the client's
// word for it: a client that lies changes only its own application.
#pragma once

#include <string>
#include <string_view>

#include "quillon/launchpad/state/limits.h"
#include "quillon/launchpad/state/proc_process.h"
#include "quillon/launchpad/state/proc_self.h"

namespace quillon::launchpad {

// Pairs of texts (quillon/base/record.h): a name for messages to the user, and a value. Two states
// with different names can be concatenated.
using ProcessState = std::string;

// The declared state of the calling process. Call before it enters a device root. Empty if /proc
// lacks a value that must be compared.
//
// program  file of the quillon program, for a client that is another program. Empty: the running
//          program.
ProcessState declaredStateOf(const ProcSelf& process, const std::string& program = {});

// The observed state of a process. Empty if /proc lacks a value that must be compared, or if the
// calling process may not inspect the process.
//
// limits  of the process
ProcessState observedStateOf(const ProcProcess& process, const Limits& limits);

// The name of the first value that differs. Empty if the states are equal.
std::string firstDifference(const ProcessState& one, const ProcessState& other);

// Whether the runtime, the loader or the C library reads an environment variable before Main.
bool isReadAtStart(std::string_view variable);

}  // namespace quillon::launchpad
