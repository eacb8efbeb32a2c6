// Searches captured standard error for signs that the process is about to end abnormally.
//
// Thread safety: the functions have no side effects, except scanForCrashKeywords, which only the
// standard-error reader calls. The flags may be read by any thread and by signal handlers.
#pragma once

#include <array>
#include <atomic>

// Set when a chunk of standard error contains a keyword of that kind. Never cleared.
extern std::atomic<bool> managedExceptionOccurred;
extern std::atomic<bool> memoryIssueOccurred;

// A chunk that contains one of these keywords sets managedExceptionOccurred. "dll" is a keyword
// because stack traces contain assembly names; other text that contains it also sets the flag.
extern const std::array<const char*, 3> managedExceptionKeywords;

bool hasManagedExceptionKeyword(const char* text);
bool hasStackSmashingKeyword(const char* text);
bool hasDoubleFreeOrCorruptionKeyword(const char* text);

// Sets the flags for the keywords that `text` contains.
void scanForCrashKeywords(const char* text);
