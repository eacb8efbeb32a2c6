// State files of running zones. The tool that runs zones writes them; the zone library, which
// enters zones, reads them. Each running zone has a small file in a fixed device folder.
//
// A zone lives as long as its holder, a process that only keeps the zone's namespaces open. The
// file contains "PID START\n". START is the holder's start time in clock ticks since boot (proc(5),
// field 22 of /proc/PID/stat). Both together identify one process, even after the kernel has reused
// the process id.
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

struct ZoneHolder {
  pid_t pid = -1;
  unsigned long long startTime = 0;  // clock ticks since boot
};

// Whether a name consists of 1 to kMaxZoneNameLength letters, digits, "-", "_" and ".", and does
// not begin with ".".
[[nodiscard]] bool isZoneName(const char* name);

// Returns the start time of a process in clock ticks since boot; 0 if there is no such process or
// its start time cannot be read. Process id and start time together identify one process.
[[nodiscard]] unsigned long long startTimeOf(pid_t pid);

// Reads the state file `name` in the open folder `directory`. Returns false with errno if there is
// no such file (ENOENT) or if it is malformed (EBADMSG).
[[nodiscard]] bool readZoneState(int directory, const char* name, ZoneHolder& holder);

// Opens a pidfd of the holder. Returns -1 with errno on failure; ESRCH if the holder has ended.
[[nodiscard]] int openZoneHolder(const ZoneHolder& holder);

}  // namespace quillon::workstation
