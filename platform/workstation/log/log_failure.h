// Logs failures that the services' C interface reports only as an error code.
#pragma once

#include "quillon/base/failure.h"

namespace quillon::workstation {

// Logs "<what>; <remedy>" as an error.
void logFailure(const Failure& failure);

}  // namespace quillon::workstation
