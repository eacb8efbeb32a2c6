// The .NET runtime of a framework folder, used through its hosting interface (coreclrhost.h of the
// public runtime).
//
// A process can start the runtime only once, also after it was shut down. During start(), other
// threads of the launcher must not load libraries or change the environment.
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "quillon/base/failure.h"
#include "quillon_tv_plugin.h"

namespace quillon::host {

// Names and values, in the order in which the runtime receives them.
using RuntimeProperties = std::vector<std::pair<std::string, std::string>>;

class Runtime {
 public:
  // Loads libcoreclr.so of a framework folder. A failure names the file and the loader's cause.
  [[nodiscard]] static Expected<Runtime> load(const std::filesystem::path& framework);

  // Starts the runtime. A failure names the step, the status and the runtime's own message.
  [[nodiscard]] Expected<void> start(const std::filesystem::path& executable,
                                     const std::string& domainName,
                                     const RuntimeProperties& properties);

  // Runs an assembly's entry point and returns the application's exit status. Fails if the assembly
  // cannot be run. An exception that the application does not catch ends the process with SIGABRT,
  // as with every .NET host.
  [[nodiscard]] Expected<unsigned> execute(const std::string& assembly,
                                           const std::vector<std::string>& arguments);

  // Shuts the runtime down. Returns the exit status that the runtime latched, which is that of the
  // application.
  int shutDown();

  void* host() const { return host_; }
  unsigned domain() const { return domain_; }
  coreclr_create_delegate_ptr createDelegate() const { return createDelegate_; }

 private:
  using ErrorWriter = void (*)(const char*);

  Runtime() = default;

  std::filesystem::path library_;
  int (*initialize_)(const char*, const char*, int, const char**, const char**, void**,
                     unsigned*) = nullptr;
  int (*execute_)(void*, unsigned, int, const char**, const char*, unsigned*) = nullptr;
  int (*shutDown_)(void*, unsigned, int*) = nullptr;
  int (*setErrorWriter_)(ErrorWriter) = nullptr;  // null if older than .NET 7
  coreclr_create_delegate_ptr createDelegate_ = nullptr;
  void* host_ = nullptr;
  unsigned domain_ = 0;
};

}  // namespace quillon::host
