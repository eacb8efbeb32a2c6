// What an application printed, among the records of the log: the plug-in logs it line by line.
#pragma once

#include <cstdarg>

namespace quillon::workstation {

// Whether a record, given as __dlog_print gets it, holds what an application wrote to its standard
// output. Nothing is formatted. `arguments` is used up.
bool isApplicationOutput(const char* format, va_list arguments);

}  // namespace quillon::workstation
