// The device root that a process is inside of.
#pragma once

#include <string>

#include "quillon/base/files.h"

namespace quillon::workstation {

// A file at the top of the file tree of a process inside, which contains the path of the device
// root on the machine.
inline constexpr char kInsideMarker[] = ".quillon-device";

// Returns the path of the device root on the machine, for commands that remedies name: users run
// them outside. Empty if this process is not inside of one.
inline std::string pathOfDevice() {
  return readWholeFile(std::string("/") + kInsideMarker, kMaxTextSize).value_or("");
}

}  // namespace quillon::workstation
