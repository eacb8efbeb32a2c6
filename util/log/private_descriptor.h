// Descriptors that the plug-in keeps in an application's process.
#pragma once

// Makes `descriptor` one that programs started by the process do not inherit, and moves it out of
// the numbers of the standard streams, which it gets where one of those is closed and which others
// take for a stream. Returns its number, the same where it cannot be moved; the caller owns it.
int keptToItself(int descriptor);
