// libhostpolicy.so for managed code: System.Runtime.Loader.AssemblyDependencyResolver calls it, and
// it answers only after .NET's own host has initialized it.
#pragma once

#include <string>

#include "quillon/host/runtime/runtime.h"

namespace quillon::resolution {

// Returns a function of a library, as managed code names both, or null to let the runtime look for
// it.
using FindFunction = const void* (*)(const char* library, const char* function);

// Adds the runtime property that gives the runtime a function to look up native functions with,
// before it looks for a library (HOST_PROPERTY_PINVOKE_OVERRIDE of the public runtime's
// host_runtime_contract.h). The function answers for libhostpolicy. At the first such call it
// has the machine's .NET host initialize the library for the application; nothing is loaded before.
// If the machine has no host, the library is found in the framework folder, without being
// initialized.
//
// others  answers for other libraries; null if none does. Call with the same one each time.
void addHostpolicy(host::RuntimeProperties& properties, FindFunction others = nullptr);

// The application's assembly. Set it before managed code of the application runs.
void setHostpolicyApplication(const std::string& assembly);

}  // namespace quillon::resolution
