// Invalidation of the cached lists.
#pragma once

// Removes the cached lists if the writable copy of the runtime flag file is missing or differs from
// the read-only copy. Every strategy calls it in its constructor.
void CheckDotnetFlagAndRemoveCacheFiles();
