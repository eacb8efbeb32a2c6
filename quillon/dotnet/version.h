// Order of .NET runtime versions.
#pragma once

#include <string>

namespace quillon::dotnet {

// Whether `other` is to be preferred to `version`: a release to every preview, else the higher one.
// Numbers compare as numbers ("10.0.2" before "10.0.12"), parts of a preview's name as semantic
// versioning says.
[[nodiscard]] bool isPreferred(const std::string& other, const std::string& version);

}  // namespace quillon::dotnet
