// Reads ahead in a process of its own: before the launcher's program is executed, which a cold
// launch has to read from the disk first, and while the launch pad already serves clients.
//
// The process has no open descriptor of the caller, and no parent that would have to wait for it.
// The caller must have one thread.
#pragma once

#include <string>

namespace quillon::prefetch {

// Whether the program is not in the page cache. False if that is unknown.
bool isCold(const std::string& program);

// Starts a process that reads what the application's profile names, and ends when it has read
// everything. It finds the files by their paths as this process sees them, and leaves out the
// others: outside of the device root, it reads the launcher's own files and libraries. Does nothing
// if the process would become a child of this one, as of every child subreaper (prctl(2)): the
// application, which this process becomes, must not find a child that it has not made.
//
// root  the device root's folder; "/" inside of it
void readAheadInBackground(const std::string& root, const std::string& appId);

// Starts a process that calls readAheadForAll(). It ends when it has read everything, or when the
// calling process has ended.
void readAheadForAllInBackground();

}  // namespace quillon::prefetch
