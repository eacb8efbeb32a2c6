// Native function pointers to static managed methods.
#pragma once

#include "quillon_tv_plugin.h"

// The runtime of the process, as the launcher passed it to plugin_set_coreclr_info.
struct ManagedRuntime {
  void* hostHandle;
  unsigned int domainId;
  coreclr_create_delegate_ptr createDelegate;
};

// Stores a function that calls `type`.`method` of `assembly` in `*function`, or null on failure.
// Returns the status of the runtime, which is negative on failure. If there is no runtime, returns
// 0x80004003, the status of a null argument.
int createManagedMethod(const ManagedRuntime& runtime, const char* assembly, const char* type,
                        const char* method, void** function);
