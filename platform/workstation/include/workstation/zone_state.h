// State files of running zones. Each running zone has an empty file in a fixed device folder.
//
// A zone lives as long as its holder, a process that only keeps the zone's namespaces open. The
// holder keeps a lock on its file (fcntl(2), F_SETLK), on one byte that no other program locks. The
// kernel states which process has the lock and removes it when the process ends. No process id is
// read from a file, so a forged or stale file cannot pass another process off as the holder.
//
// Uses only libc, because the zone library must not need more.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace quillon::workstation {

// Device paths.
inline constexpr char kZoneStateDirectory[] = "/opt/usr/share/quillon/zones";
// Outside a zone, the zone's root is "/zone/NAME". Inside, this path does not exist.
inline constexpr char kZoneDirectory[] = "/zone";

inline constexpr std::size_t kMaxZoneNameLength = 64;

// Whether a name consists of 1 to kMaxZoneNameLength letters, digits, "-", "_" and ".", and does
// not begin with ".".
[[nodiscard]] bool isZoneName(const char* name);

// Returns the start time of a process in clock ticks since boot; 0 if there is no such process or
// its start time cannot be read. Process id and start time together identify one process.
[[nodiscard]] unsigned long long startTimeOf(pid_t pid);

// Makes the calling process the holder of the zone whose state file is open as `file`, until it
// ends or closes any descriptor of that file. Returns false with errno on failure.
[[nodiscard]] bool holdZone(int file);

// Opens a pidfd of the holder of the state file `name` in the open folder `directory`, and stores
// the holder's process id in `pid`. Returns -1 with errno on failure: ENOENT if there is no such
// file, ESRCH if no process holds the zone.
[[nodiscard]] int openZoneHolder(int directory, const char* name, pid_t& pid);

}  // namespace quillon::workstation
