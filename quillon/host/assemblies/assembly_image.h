// Whether a file is an assembly with an entry point, and whether it brings compiled code.
//
// The runtime answers a file that is not with an exception that nobody can catch, and dies of it
// (SIGABRT). The launcher looks first.
#pragma once

#include <filesystem>
#include <string_view>

#include "quillon/base/failure.h"

namespace quillon::host {

// Fails, naming the file and the cause, unless the file is a managed assembly whose entry point is
// managed code.
[[nodiscard]] Expected<void> requireExecutableAssembly(const std::filesystem::path& file);

// What is wrong with an image (PE/COFF with a CLI header, ECMA-335 II.25); empty where it can be
// executed. Reads any bytes whatever without leaving them.
std::string_view wrongWithImage(std::string_view image);

// Whether an image brings compiled code (ReadyToRun) beside its IL, so that the runtime need not
// compile what the application starts with. Reads any bytes whatever without leaving them.
bool bringsCompiledCode(std::string_view image);
bool bringsCompiledCode(const std::filesystem::path& file);

}  // namespace quillon::host
