// Functions for the calling process and its system.
#pragma once

#include <string>

// Sets the name of the calling thread, truncated to 15 characters (prctl(2), PR_SET_NAME). Does
// nothing if the name is empty.
void setCmdName(const std::string& name);

// Returns true if "/etc/release" exists.
bool isReleaseVersion();
