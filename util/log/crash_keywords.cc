#include "util/log/crash_keywords.h"

#include <algorithm>
#include <cstring>

static_assert(std::atomic<bool>::is_always_lock_free, "signal handlers read the flags");

constinit std::atomic<bool> managedExceptionOccurred{false};
constinit std::atomic<bool> memoryIssueOccurred{false};

const std::array<const char*, 3> managedExceptionKeywords = {
    "Velora", "dll", "Process is terminating due to StackOverflowException."};

bool hasManagedExceptionKeyword(const char* text) {
  return std::any_of(managedExceptionKeywords.begin(), managedExceptionKeywords.end(),
                     [text](const char* keyword) { return strstr(text, keyword) != nullptr; });
}

bool hasStackSmashingKeyword(const char* text) {
  return strstr(text, "stack smashing detected") != nullptr;
}

bool hasDoubleFreeOrCorruptionKeyword(const char* text) {
  return strstr(text, "double free or corruption") != nullptr;
}

void scanForCrashKeywords(const char* text) {
  if (!managedExceptionOccurred) {
    managedExceptionOccurred = hasManagedExceptionKeyword(text);
  }
  if (!memoryIssueOccurred) {
    memoryIssueOccurred = hasStackSmashingKeyword(text) || hasDoubleFreeOrCorruptionKeyword(text);
  }
}
