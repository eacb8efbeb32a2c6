// The common part of the constructors of all strategies.
#pragma once

#include "plugin/src/dotnet-signal-handler/signal_handler.h"
#include "plugin/src/plugin-util/cache_invalidation.h"

// Installs the signal handlers before any access to the file system, then removes the cached lists
// if they do not belong to the runtime of the device.
inline void prepareForStrategy() {
  registerSignalHandler();
  CheckDotnetFlagAndRemoveCacheFiles();
}
