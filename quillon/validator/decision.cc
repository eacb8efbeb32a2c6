#include "quillon/validator/decision.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "quillon/validator/digest.h"

namespace quillon::validator {
namespace {

namespace fs = std::filesystem;

// Whether `path` is `folder` or below it. Compares whole path components.
bool isBelow(const std::string& path, const std::string& folder) {
  return path.starts_with(folder) &&
         (folder.ends_with('/') || path.size() == folder.size() || path[folder.size()] == '/');
}

// Returns the first entry of `folders` that contains `path`, or nullptr.
const std::string* folderOf(const std::string& path, const std::vector<std::string>& folders) {
  const auto found = std::find_if(folders.begin(), folders.end(),
                                  [&](const std::string& folder) { return isBelow(path, folder); });
  return found == folders.end() ? nullptr : &*found;
}

Decision allow(std::string reason) { return {true, std::move(reason)}; }
Decision deny(std::string reason) { return {false, std::move(reason)}; }

}  // namespace

Decision decide(const Policy& policy, const std::string& library) {
  std::error_code error;
  if (fs::canonical(library, error) != library) {
    return deny(error ? error.message() : "the path is not the file's canonical one");
  }
  if (const std::string* folder = folderOf(library, policy.deniedPaths)) {
    return deny("below " + *folder + " of deny-paths");
  }
  const auto digest = sha256Of(library);
  if (!digest) {
    return deny(digest.error().what);
  }
  if (policy.allowedDigests.contains(*digest)) {
    return allow("listed in allow-sha256");
  }
  if (const std::string* folder = folderOf(library, policy.allowedPaths)) {
    return allow("below " + *folder + " of allow-paths");
  }
  if (policy.allowsByDefault) {
    return allow("by default");
  }
  return deny("by default; its SHA-256 is " + *digest);
}

}  // namespace quillon::validator
