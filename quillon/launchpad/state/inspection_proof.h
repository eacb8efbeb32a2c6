// A client's proof that it may inspect the server.
//
// The kernel does not show whether Landlock confines another process. But a process in a Landlock
// domain may not inspect a process outside of it. So the server keeps a descriptor whose link below
// /proc contains a random number, and a client can read that link only if it may inspect the
// server (PTRACE_MODE_READ in ptrace(2)). The number is a part of the declared state, so the server
// compares it with its own.
#pragma once

#include <sys/types.h>

#include "quillon/base/descriptor.h"
#include "quillon/launchpad/state/process_state.h"

namespace quillon::launchpad {

// Opens the server's descriptor. Call once, before the process opens other files. Returns an
// invalid descriptor if no memory or no descriptor is available.
Descriptor openInspectionProof();

// The proof as a part of a declared state. Empty if the calling process may not inspect `server`.
ProcessState inspectionProofOf(pid_t server);

}  // namespace quillon::launchpad
