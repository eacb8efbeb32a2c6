// What the constructor of every strategy does.
#pragma once

#include "plugin/src/dotnet-signal-handler/signal_handler.h"
#include "plugin/src/plugin-util/cache_invalidation.h"

// Decides how the process dies before anything touches the file system, then throws the cached
// lists away where they no longer belong to the device's runtime.
inline void prepareForStrategy() {
  registerSignalHandler();
  CheckDotnetFlagAndRemoveCacheFiles();
}
