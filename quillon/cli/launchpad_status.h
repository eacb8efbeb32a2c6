// Prints the status of a launch pad.
#pragma once

#include "quillon/launchpad/protocol/status.h"

namespace quillon::cli {

void printStatus(const launchpad::Status& status);
void printStatusAsJson(const launchpad::Status& status);

// In OpenMetrics text format 1.0.
void printMetrics(const launchpad::Status& status);

}  // namespace quillon::cli
