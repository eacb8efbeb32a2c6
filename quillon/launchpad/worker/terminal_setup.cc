#include "quillon/launchpad/worker/terminal_setup.h"

#include <dlfcn.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace quillon::launchpad {
namespace {

using Setup = int32_t (*)();

constexpr std::string_view kNativeLibrary = "libSystem.Native";
constexpr char kNativeFile[] = "libSystem.Native.so";
constexpr char kSetup[] = "SystemNative_InitializeTerminalAndSignalHandling";
constexpr std::string_view kOwnLibrary = "Quillon.Launchpad";
constexpr std::string_view kPostpone = "PostponeTerminalSetup";

std::atomic<bool> isPostponed = false;

// Null if the runtime has no such function. The runtime has loaded the library before managed code
// runs, and never unloads it.
Setup runtimesSetup() {
  void* const library = dlopen(kNativeFile, RTLD_LAZY | RTLD_NOLOAD);
  void* const found = library == nullptr ? nullptr : dlsym(library, kSetup);
  Setup setup = nullptr;
  static_assert(sizeof setup == sizeof found);
  std::memcpy(&setup, &found, sizeof found);
  return setup;
}

// Returns whether it succeeded, with errno(3) otherwise.
int32_t setUp() {
  static const Setup real = runtimesSetup();
  return isPostponed ? 1 : real();
}

void postpone(int32_t value) { isPostponed = value != 0; }

}  // namespace

const void* findTerminalSetup(const char* library, const char* function) {
  const bool isSetup = library == kNativeLibrary && function == std::string_view(kSetup);
  const bool isPostpone = library == kOwnLibrary && function == kPostpone;
  if ((!isSetup && !isPostpone) || runtimesSetup() == nullptr) {
    return nullptr;
  }
  return isSetup ? reinterpret_cast<const void*>(&setUp) : reinterpret_cast<const void*>(&postpone);
}

}  // namespace quillon::launchpad
