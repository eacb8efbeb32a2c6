// Small text files that are whole or torn: "[START]" + payload + "[END]".
#pragma once

#include <string>

// The file's bytes; empty when it cannot be opened.
std::string readFileToString(std::string path);

// True unless `content` begins with "[START]" and ends with "[END]".
bool isCrashed(std::string content);

// Replaces directory + name by `content` through a temporary file beside it. `directory` ends with
// "/". Does nothing where either name is a symbolic link.
void writeStringToFile(std::string directory, std::string name, std::string content);
