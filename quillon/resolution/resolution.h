// What .NET's own host answered about an application, and when it has to be asked again.
//
// An answer is a small file of the device root, beside the package registry. It names the files
// that it depends on: a launch reads it, compares their sizes and times, and needs no host.
// docs/frameworks.md has the grammar.
//
// Call these functions inside the device root.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "quillon/base/failure.h"
#include "quillon/host/runtime/runtime_config.h"
#include "quillon/resolution/additions.h"

namespace quillon::resolution {

struct Subject {
  const std::string& assembly;          // of the application; absolute path
  const host::RuntimeConfig& config;    // its runtimeconfig.json
  const std::string& frameworkVersion;  // of the device; empty if unknown
};

// A stored answer that is up to date. It is empty, and not stored, if there is nothing to ask: the
// application has no dependency file and wants no framework but the device's.
struct StoredAnswer {
  Additions additions;
  std::vector<std::string> files;  // that it depends on, and its own
};

// Returns nullopt if the host has to be asked.
std::optional<StoredAnswer> findAnswer(const Subject& subject);

// Asks the host, and stores the answer, if there is one and the device root can be written. Without
// an answer, the additions have a warning. The process must have one thread.
Additions askAndStore(const Subject& subject);

// Asks anew about an assembly that has been installed, if there is something to ask. Returns no
// additions if its runtimeconfig.json cannot be read. The process must have one thread.
Additions renewAnswer(const std::string& assembly);

// Removes the answers about all assemblies below a folder.
void forgetAnswers(const std::string& folder);

// Fails with kNoRuntime if the machine lacks a framework that the application needs.
[[nodiscard]] Expected<void> requireFrameworks(const Additions& additions);

// The warning that a launch of the application reports once; nullopt if there is none.
std::optional<Failure> warningAbout(const std::string& applicationId, const Additions& additions);

}  // namespace quillon::resolution
