// Text in a memory file (memfd_create(2)) whose seals prevent every later change.
#pragma once

#include <string_view>

#include "quillon/base/descriptor.h"
#include "quillon/launchpad/protocol/message.h"

namespace quillon::launchpad {

// Returns an invalid descriptor on failure.
Descriptor makeSealedMemory(std::string_view text);

// The text of a memory file. Returns nothing if the file is not fully sealed or is larger than
// 64 MiB. Never blocks: a file that its owner can still truncate could make the reader wait or fail
// later.
SensitiveBytes readSealedMemory(int file);

}  // namespace quillon::launchpad
