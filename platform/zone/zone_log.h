// The zone library's lines in the platform log.
#pragma once

namespace quillon::zone {

// Appends one error line with the tag "ZONE". Where the process has no platform log the line is
// lost.
[[gnu::format(printf, 1, 2)]] void logError(const char* format, ...);

}  // namespace quillon::zone
