// The fixed device paths of the workstation's services. A process sees those of the device root
// that it has entered.
#pragma once

namespace quillon::workstation {

inline constexpr const char* kDataDirectory = "/opt/usr/share/quillon";
inline constexpr const char* kRegistryLockPath = "/opt/usr/share/quillon/packages.lock";
inline constexpr const char* kConfigDirectory = "/opt/usr/share/quillon/config";

}  // namespace quillon::workstation
