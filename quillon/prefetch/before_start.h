// Reads ahead before the launcher has started: the first process of a launch calls it and then
// executes the launcher's program, which a cold launch has to read from the disk first.
#pragma once

#include <string>

namespace quillon::prefetch {

// Whether the program is not in the page cache. False if that is unknown.
bool isCold(const std::string& program);

// Starts a process that reads what the application's profile names. The process has no parent that
// would have to wait for it, and ends when it has read everything. It finds the files by their
// paths as this process sees them, and leaves out the others: outside of the device root, it reads
// the launcher's own files and libraries.
//
// root  the device root's folder; "/" inside of it
void readAheadInBackground(const std::string& root, const std::string& appId);

}  // namespace quillon::prefetch
