#include "tests/support/sanitized.h"

bool isSanitized() { return QUILLON_SANITIZED != 0; }
