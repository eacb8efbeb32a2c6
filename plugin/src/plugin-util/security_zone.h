// The application zone: where the calling process is, and how it gets in.
#pragma once

#include <platform/zone.h>

#include <string>

enum Zone { Host = 0, AppZone = 1 };

// The zone library's functions, as the last AttachZone found them; null before. They point into a
// library that AttachZone has closed again: nobody else calls through them.
extern decltype(&zone_get_context) _get_zone;
extern decltype(&zone_release_context) _release_Zone;
extern decltype(&zone_attach_process) _attach_Zone;
extern decltype(&zone_enable_debug_mode) _enable_debug;

// Host while the zone's root can be seen, which it can from outside only; AppZone otherwise, on a
// device without zones as well.
Zone GetZone();

bool isInAppZone();

// Moves the calling process, which must have one thread, into the application zone unless it is
// there already. Returns inside the zone, or outside where the platform has no zone library. Ends
// the process with status 0, after one error line, when the zone cannot be entered.
void enterSecureZone();

// The same for the zone `name`, without asking where the process is. Lets debuggers attach first
// when the calling process's package holds the application-debugging privilege.
void AttachZone(const std::string& name);
