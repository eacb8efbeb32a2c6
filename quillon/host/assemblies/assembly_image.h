// Whether a file is an assembly with an entry point, and whether it contains compiled code.
//
// The runtime reports a file that it cannot execute with an exception that no code can catch, which
// ends the process with SIGABRT. So the launcher checks the file first.
#pragma once

#include <filesystem>
#include <string_view>

#include "quillon/base/failure.h"

namespace quillon::host {

// Fails, naming the file and the cause, unless the file is a managed assembly whose entry point is
// managed code. If the file is the native program that the SDK makes for an application, the remedy
// names its assembly, or the publish option that makes one.
[[nodiscard]] Expected<void> requireExecutableAssembly(const std::filesystem::path& file);

// Whether a file is the native program of an application that was published as a single file.
bool isSingleFileProgram(const std::filesystem::path& file);

// Why an image (PE/COFF with a CLI header, ECMA-335 II.25) cannot be executed; empty if it can.
// `image` may be any bytes.
std::string_view imageError(std::string_view image);

// Whether an image contains ReadyToRun code beside its IL, so that the runtime need not compile the
// code that runs at the start. `image` may be any bytes. False for a file that cannot be read.
bool hasReadyToRunCode(std::string_view image);
bool hasReadyToRunCode(const std::filesystem::path& file);

}  // namespace quillon::host
