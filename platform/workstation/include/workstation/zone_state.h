// How the tool that runs zones and the zone library that enters them find each other: one small
// file for each running zone, in the device's own folder of zone states.
//
// A zone lives as long as its holder, a process that does nothing but keep the zone's namespaces.
// The file names it as "PID START\n", START being the holder's start time in clock ticks since boot
// (proc(5), field 22 of /proc/PID/stat): together they name one process, however often the kernel
// reuses its number.
//
// Needs nothing but libc, since the zone library may need no more.
#pragma once

#include <sys/types.h>

#include <cstddef>

namespace quillon::workstation {

// Device paths.
inline constexpr char kZoneStateDirectory[] = "/opt/usr/share/quillon/zones";
// Seen from outside a zone, the zone's root is "/zone/NAME"; inside there is no such path.
inline constexpr char kZoneDirectory[] = "/zone";

inline constexpr std::size_t kLongestZoneName = 64;

struct ZoneHolder {
  pid_t pid = -1;
  unsigned long long startTime = 0;  // clock ticks since boot
};

// Letters, digits, "-", "_" and "."; 1 to kLongestZoneName of them; the first is no ".".
[[nodiscard]] bool isZoneName(const char* name);

// The start time of a process; 0 where there is none, or where it cannot be told.
[[nodiscard]] unsigned long long startTimeOf(pid_t pid);

// What the file "NAME" in the folder `directory` says. False, with errno, when there is no such
// file (ENOENT) or when it holds something else (EBADMSG).
[[nodiscard]] bool readZoneState(int directory, const char* name, ZoneHolder& holder);

// A descriptor (pidfd) of the holder while it runs; -1, with errno ESRCH, when it has ended.
[[nodiscard]] int openZoneHolder(const ZoneHolder& holder);

}  // namespace quillon::workstation
