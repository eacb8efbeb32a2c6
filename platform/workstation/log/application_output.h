// Recognizes log records that contain an application's output, which the plug-in logs line by line.
#pragma once

#include <cstdarg>

namespace quillon::workstation {

// Whether a record contains a line that the application wrote to its standard output. Takes the
// arguments of __dlog_print and formats nothing. `arguments` is indeterminate afterwards.
bool isApplicationOutput(const char* format, va_list arguments);

}  // namespace quillon::workstation
