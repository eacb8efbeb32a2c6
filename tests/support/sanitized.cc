#include "tests/support/sanitized.h"

bool isSanitized() { return QUILLON_SANITIZED != 0; }

bool isEmulated() { return QUILLON_EMULATED != 0; }
