// Small text files with markers that show whether they are complete: "[START]" + payload + "[END]".
#pragma once

#include <string>
#include <string_view>

// Returns the content of the file, or an empty string if it cannot be read or is not a regular
// file.
std::string readFileToString(std::string path);

// Returns true if `content` begins with "[START]" and ends with "[END]".
bool isComplete(std::string_view content);

// Returns the opposite of isComplete().
bool isCrashed(std::string content);

// Replaces the content of the file directory + name. Writes a temporary file in the same directory
// and renames it. `directory` must end with "/". Does nothing if one of the two files is a symbolic
// link.
void writeStringToFile(std::string directory, std::string name, std::string content);
