// What the standard-error reader recognises of a process that is about to die.
//
// Thread safety: the functions are pure, but for scanForCrashKeywords, which the standard-error
// reader calls. The flags may be read anywhere, signal handlers included.
#pragma once

#include <array>
#include <atomic>

// Set once a chunk of standard error holds a keyword of the kind; never cleared.
extern std::atomic<bool> managedExceptionOccurred;
extern std::atomic<bool> memoryIssueOccurred;

// Any of them tells of a managed exception. Stack traces name assemblies, hence "dll"; so does much
// that is no exception, and sets the flag as well.
extern const std::array<const char*, 3> managedExceptionKeywords;

bool hasManagedExceptionKeyword(const char* text);
bool hasStackSmashingKeyword(const char* text);
bool hasDoubleFreeOrCorruptionKeyword(const char* text);

// Sets the flags that `text` tells of.
void scanForCrashKeywords(const char* text);
