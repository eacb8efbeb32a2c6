// The subcommands of quillon, every one in one list: a library of their own, which the program
// loads when it is asked for more than a plain launch. What they and their parser make at a
// program's start a launch does not wait for.
#pragma once

inline constexpr char kCommandsLibrary[] = "libquillon-commands.so";
inline constexpr char kCommandsFunction[] = "quillon_commands";

// Parses a command line, runs what it asks for and returns the program's exit status.
extern "C" int quillon_commands(int argc, char** argv);
