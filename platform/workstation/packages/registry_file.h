// The file that stores the package registry. It is read as a whole and replaced as a whole.
//
// A writer never changes the file in place: it writes a new file and renames it. A reader therefore
// needs no lock, never waits, and reads the state before or after a change, also if the writer is
// killed at any moment or the disk is full.
//
// Writers hold the InstallLock.
#pragma once

#include <string>
#include <string_view>

#include "quillon/base/failure.h"

namespace quillon::workstation {

// Returns the bytes of the file; an empty string if it is missing. If an earlier version, which
// changed the file in place, was interrupted, recovers the file first.
Expected<std::string> readRegistryFile();

// Whether a writer may use the space that reserveSpace() has set aside.
enum class Reserve { kKeep, kUse };

// Replaces the file. With kUse a full disk is not a failure as long as the reserve suffices.
Expected<void> replaceRegistryFile(std::string_view bytes, Reserve reserve);

// Sets space on the disk aside, so that packages can be removed when the disk is full. Keeps what
// is set aside already if the disk does not have more space now.
void reserveSpace();

}  // namespace quillon::workstation
