// The application zone: tests whether the calling process is in it, and enters it.
#pragma once

#include <string>

#include "platform/zone.h"

enum Zone { Host = 0, AppZone = 1 };

// The functions of the zone library that the last AttachZone found; null before. AttachZone closes
// the library before it returns, so no other code may call them.
extern decltype(&zone_get_context) _get_zone;
extern decltype(&zone_release_context) _release_Zone;
extern decltype(&zone_attach_process) _attach_Zone;
extern decltype(&zone_enable_debug_mode) _enable_debug;

// Returns Host if the root directory of the application zone is visible, which is possible only
// outside the zone. Returns AppZone otherwise, also on a device without zones.
Zone GetZone();

bool isInAppZone();

// Moves the calling process into the application zone, unless it is already there. The process must
// have one thread. Returns inside the zone, or outside if the platform has no zone library. Ends
// the process with status 0, after one error line, if the zone cannot be entered.
void enterSecureZone();

// Moves the calling process into the zone `name` without testing its current zone; otherwise the
// same as enterSecureZone. If the package of the calling process has the application-debugging
// privilege, allows debuggers to attach first.
void AttachZone(const std::string& name);
