// The error file: keeps what the process wrote to standard error, independently of the platform
// log.
//
// Thread safety: only the standard-error reader may use it.
#pragma once

#include <string>
#include <string_view>

// Path of the error file; empty until the first write. Each process has its own file. Never
// destroyed, because the reader can run longer than main.
extern std::string errorLogFile;

// Appends `text` and a newline to the error file. The file is opened and closed each time, so that
// its content survives a crash. If the file cannot be opened or is not a regular file, does
// nothing.
void writeStringTofile(std::string_view text);
