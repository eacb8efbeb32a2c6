// The file that keeps what the process wrote on standard error, whatever becomes of the log.
//
// Thread safety: the standard-error reader's alone.
#pragma once

#include <string>
#include <string_view>

// Path of the error file; empty until there is something to write. One process writes one file.
// Never destroyed: the reader outlives main.
extern std::string& errorLogFile;

// Appends `text` and a newline to the error file, which is opened and closed each time so that its
// content survives what comes next. A file that cannot be opened is skipped,
// and so is what is no regular file.
void writeStringTofile(std::string_view text);
