// The names of log targets, and the descriptors that they write to.
#pragma once

#include <optional>
#include <string>

#include "log/log_settings.h"
#include "quillon/base/descriptor.h"

namespace quillon::workstation {

// The target's name in QUILLON_LOG, without a path.
const char* nameOf(LogTarget target);
std::optional<LogTarget> targetNamed(const std::string& name);

// Whether the target is written to through a descriptor.
bool needsDescriptor(LogTarget target);

// Opens the descriptor of such a target: a duplicate of standard error, or the file. It is closed
// on exec, and above the numbers that programs use for themselves. Returns an invalid descriptor
// and sets `problem` on failure.
Descriptor openTarget(const LogSettings& settings, std::string& problem);

}  // namespace quillon::workstation
