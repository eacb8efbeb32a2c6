// Orders .NET runtime versions.
#pragma once

#include <string>

namespace quillon::dotnet {

// Whether `other` is preferred to `version`: releases before previews, then the higher version.
// Numeric parts compare as numbers ("10.0.2" before "10.0.12"), the parts of a preview's name as
// defined by semantic versioning (https://semver.org).
[[nodiscard]] bool isPreferred(const std::string& other, const std::string& version);

}  // namespace quillon::dotnet
