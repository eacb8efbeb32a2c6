// What a process hands down to an application that it becomes, and a prepared process cannot take
// over from another one.
//
// A launch may be carried out by a process of the launch pad only where all of this is the same for
// the asking command and for the launch pad; the application could tell the difference otherwise.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

namespace quillon::launchpad {

// Name, as a person reads it, and value.
using ProcessShape = std::map<std::string, std::string>;

// File of the program that runs.
inline constexpr char kOwnProgram[] = "/proc/self/exe";

// The calling process's. Call before it enters a device root.
// program  file of the quillon program, for a process that another program asks from
ProcessShape currentShape(const std::filesystem::path& program = kOwnProgram);

// The name of the first thing that differs; empty where nothing does.
std::string firstDifference(const ProcessShape& one, const ProcessShape& other);

// Whether the runtime, the loader or the C library reads an environment variable before `Main`.
bool isReadAtStart(std::string_view variable);

}  // namespace quillon::launchpad
