// When cached lists are thrown away.
#pragma once

// Removes the cached lists when the runtime flag file's writable copy is missing or differs from
// the read-only one. Run at the construction of every strategy.
void CheckDotnetFlagAndRemoveCacheFiles();
