// What a process hands down to an application that it becomes, and a prepared process cannot take
// over from another one.
//
// A launch may be carried out by a process of the launch pad only where all of this is the same for
// the asking command and for the launch pad; the application could tell the difference otherwise.
#pragma once

#include <string>
#include <string_view>

#include "quillon/launchpad/state/proc_self.h"

namespace quillon::launchpad {

// Texts (text_record.h) in pairs: a name, as a person reads it, and a value.
using ProcessState = std::string;

// The calling process's. Call before it enters a device root. Empty where the kernel does not tell,
// and nothing can be compared.
//
// program  file of the quillon program, for a process that another program asks from; empty: the
//          one that runs
ProcessState processStateOf(const ProcSelf& process, const std::string& program = {});

// The name of the first thing that differs; empty where nothing does.
std::string firstDifference(const ProcessState& one, const ProcessState& other);

// Whether the runtime, the loader or the C library reads an environment variable before `Main`.
bool isReadAtStart(std::string_view variable);

}  // namespace quillon::launchpad
