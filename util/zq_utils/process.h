// The calling process and the system it runs on.
#pragma once

#include <string>

// Names the calling thread, cut to 15 characters (prctl(2), PR_SET_NAME). An empty name is ignored.
void setCmdName(const std::string& name);

// True when "/etc/release" exists.
bool isReleaseVersion();
