// Native functions for static managed methods.
#pragma once

#include <quillon_tv_plugin.h>

// The runtime of the process, as the launcher handed it over.
struct ManagedRuntime {
  void* hostHandle;
  unsigned int domainId;
  coreclr_create_delegate_ptr createDelegate;
};

// Stores a function that calls `type`.`method` of `assembly` in `*function`; null where the runtime
// gave none. Returns the runtime's status, negative on failure; that of a null argument
// (0x80004003) where there is no runtime.
int createManagedMethod(const ManagedRuntime& runtime, const char* assembly, const char* type,
                        const char* method, void** function);
