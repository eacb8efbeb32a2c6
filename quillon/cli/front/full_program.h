// The two files of the program.
//
// "bin/quillon" is the front: a static program, whose start is a small part of a full program's. It
// asks the launch pad for plain launches and waits for their applications. For everything else it
// executes the full program, "libexec/quillon", in its own place. The full program works by itself,
// too. Its path depends on nothing but the file that the front runs from, neither on the
// environment nor on the working directory nor on argv.
#pragma once

#include <string>

namespace quillon::cli {

// Returns the path of the full program that was built or installed together with the running front.
// Empty if /proc is not mounted.
std::string fullProgram();

// Executes the full program with the calling process's arguments and environment. Returns only if
// that fails: reports the failure and returns an exit status.
//
// program     fullProgram()
// isDeclined  the launch pad has been asked for this launch and cannot serve it, so the full
// program
//             must not ask again
int runFullProgram(const std::string& program, char** arguments, bool isDeclined);

// In the full program: whether it was executed with `isDeclined`.
bool isDeclinedLaunch();

}  // namespace quillon::cli
