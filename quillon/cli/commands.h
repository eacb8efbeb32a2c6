// The subcommands of quillon, in two shared libraries. The program loads one of them for every
// command line except a plain launch, so a plain launch does not pay for loading the parser. The
// commands that need libcrypto are apart, so the others do not pay for loading that.
#pragma once

#include <string_view>

inline constexpr char kCommandsLibrary[] = "libquillon-commands.so";
inline constexpr char kCryptoCommandsLibrary[] = "libquillon-crypto-commands.so";
inline constexpr char kCommandsFunction[] = "quillon_commands";

// Commands of the build and of the shells, which --help does not list. The words after them are
// those of another command line.
inline constexpr std::string_view kCompleteCommand = "__complete";  // see completion.h
inline constexpr std::string_view kManualCommand = "__manual";      // see manual.h
constexpr bool isGenerator(std::string_view word) {
  return word == kCompleteCommand || word == kManualCommand;
}

// Returns the library of the subcommand that a command line names.
constexpr const char* commandsLibraryOf(int argc, char** argv) {
  const int first = argc > 1 && isGenerator(argv[1]) ? 2 : 1;
  const std::string_view command = first < argc ? argv[first] : "";
  const bool needsCrypto = command == "partner" || command == "validator";
  return needsCrypto ? kCryptoCommandsLibrary : kCommandsLibrary;
}

// The only function of each library. Parses a command line, runs the command and returns its exit
// status.
extern "C" int quillon_commands(int argc, char** argv);
