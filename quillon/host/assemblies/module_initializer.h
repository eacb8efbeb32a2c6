// Whether an assembly has code that the runtime runs before any other code of it.
#pragma once

#include <filesystem>
#include <string_view>

namespace quillon::host {

// Whether an assembly has a module initializer: a type initializer of its type <Module> (ECMA-335
// II.5.9). The runtime may run it when it compiles a method that uses the assembly, before any
// method of the assembly is called.
//
// `image` may be any bytes. True if they are an assembly whose metadata cannot be read. False if
// they are not an assembly.
bool hasModuleInitializer(std::string_view image);

// The same for a file. True if the file cannot be read.
bool hasModuleInitializer(const std::filesystem::path& file);

}  // namespace quillon::host
