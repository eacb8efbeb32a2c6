// Descriptors that the plug-in keeps open in the process of an application.
#pragma once

// Sets close-on-exec on `descriptor`, so that programs started by the process do not inherit it. If
// its number is 0, 1 or 2 because a standard stream is closed, moves it to a higher number, so that
// it is not mistaken for a standard stream. Returns the new number, or the old one if it cannot be
// moved. The caller owns the result.
int makePrivate(int descriptor);
