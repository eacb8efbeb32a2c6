// All subcommands of quillon, in a shared library that the program loads for every command line
// except a plain launch. So a plain launch does not pay for loading the parser and its libraries.
#pragma once

inline constexpr char kCommandsLibrary[] = "libquillon-commands.so";
inline constexpr char kCommandsFunction[] = "quillon_commands";

// Parses a command line, runs the command and returns its exit status.
extern "C" int quillon_commands(int argc, char** argv);
