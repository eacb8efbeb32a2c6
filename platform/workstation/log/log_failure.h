// How the workstation's services tell of failures that their C interface has no words for.
#pragma once

#include "quillon/base/failure.h"

namespace quillon::workstation {

// Writes "<what>; <remedy>" as an error record.
void logFailure(const Failure& failure);

}  // namespace quillon::workstation
