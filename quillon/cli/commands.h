// The subcommands of quillon, in two shared libraries. The program loads one of them for every
// command line except a plain launch, so a plain launch does not pay for loading the parser. The
// commands that need libcrypto are apart, so the others do not pay for loading that.
#pragma once

#include <string_view>

inline constexpr char kCommandsLibrary[] = "libquillon-commands.so";
inline constexpr char kCryptoCommandsLibrary[] = "libquillon-crypto-commands.so";
inline constexpr char kCommandsFunction[] = "quillon_commands";

// Returns the library of a subcommand.
constexpr const char* commandsLibraryOf(std::string_view command) {
  const bool needsCrypto = command == "partner" || command == "validator";
  return needsCrypto ? kCryptoCommandsLibrary : kCommandsLibrary;
}

// The only function of each library. Parses a command line, runs the command and returns its exit
// status.
extern "C" int quillon_commands(int argc, char** argv);
