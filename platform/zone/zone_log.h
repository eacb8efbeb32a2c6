// Writes the zone library's lines to the platform log.
#pragma once

namespace quillon::zone {

// Logs an error with the tag "ZONE". Does nothing if the process has no platform log.
[[gnu::format(printf, 1, 2)]] void logError(const char* format, ...);

}  // namespace quillon::zone
