// libhostfxr.so, the part of .NET's own host that chooses frameworks and files for an application:
// https://github.com/dotnet/runtime/blob/main/docs/design/features/native-hosting.md
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "quillon/base/failure.h"
#include "quillon/host/runtime/runtime.h"

namespace quillon::resolution {

// Statuses of hostfxr (docs/design/features/host-error-codes.md of the runtime).
inline constexpr int kHostFrameworkMissing = static_cast<int>(0x80008096U);

// Whether the application's own settings decide about a newer framework, or every newer one will
// do.
enum class RollForward { kOwnSettings, kLatestMajor };

class Hostfxr {
 public:
  // Loads the library, which is never unloaded.
  [[nodiscard]] static Expected<Hostfxr> load(const std::filesystem::path& library);

  struct Answer {
    int status = 0;                      // negative: refused
    std::string messages;                // of the host, lines of text
    host::RuntimeProperties properties;  // with which it would start the runtime
  };

  // Resolves the application's dependencies as `dotnet ASSEMBLY` does, without starting the
  // runtime. Afterwards libhostpolicy.so of the chosen framework is loaded and initialized.
  //
  // root  the folder of the machine's .NET, which holds "shared"
  Answer initialize(const std::string& assembly, const std::filesystem::path& root,
                    RollForward rollForward) const;

 private:
  // "struct hostfxr_initialize_parameters" of hostfxr.h.
  struct Parameters {
    size_t size;
    const char* hostPath;
    const char* dotnetRoot;
  };
  using ErrorWriter = void (*)(const char*);

  int (*initialize_)(int, const char**, const Parameters*, void**) = nullptr;
  int (*getProperties_)(const void*, size_t*, const char**, const char**) = nullptr;
  ErrorWriter (*setErrorWriter_)(ErrorWriter) = nullptr;
};

// The framework that a message of the host names as missing: "Framework: 'NAME', version 'V'".
std::optional<std::pair<std::string, std::string>> missingFrameworkIn(const std::string& messages);

}  // namespace quillon::resolution
