// What an application needs beside the device's framework: other shared frameworks of the machine,
// and the files that its dependency file (NAME.deps.json) selects for this operating system.
#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::resolution {

// A shared framework other than Microsoft.NETCore.App, such as Microsoft.AspNetCore.App.
struct SharedFramework {
  std::string name;
  std::string version;
  std::string directory;  // empty if the machine does not have it

  std::strong_ordering operator<=>(const SharedFramework&) const = default;
};

struct Additions {
  std::vector<SharedFramework> frameworks;
  std::vector<std::string> assemblies;     // files, to be trusted beside those of the device
  std::vector<std::string> nativeFolders;  // in search order
  // The framework for which .NET's own host refuses the application.
  std::optional<SharedFramework> missing;
  // What .NET's own host objects to, although the device runs the application: a clause without its
  // subject, the application. Empty if it does not object.
  std::string warning;

  std::strong_ordering operator<=>(const Additions&) const = default;
  [[nodiscard]] bool isEmpty() const { return *this == Additions(); }
};

// The source of a file or folder of `additions`: "Microsoft.AspNetCore.App 10.0.12", or "the
// application's dependency file".
std::string sourceOf(const Additions& additions, std::string_view path);

// The assemblies that belong to no framework: those that the application's dependency file selects.
std::vector<std::string> ownAssemblies(const Additions& additions);

// "Microsoft.AspNetCore.App 10.0.12, 2 selected assemblies 1 native folder"; empty if there are no
// additions.
std::string describe(const Additions& additions);

// Lines of text; docs/frameworks.md has the grammar. Leaves out a path that contains a line break
// or ':', which cannot be in a list of the runtime either.
std::string format(const Additions& additions);

// Returns nullopt unless each line has the form that format() writes. `text` may be any bytes.
std::optional<Additions> parseAdditions(std::string_view text);

// Whether a path is absolute, has no component "." or "..", and can be part of a list.
bool isPlainPath(std::string_view path);

// Whether `path` is `folder` or below it. False if `folder` is empty.
bool isBelow(std::string_view path, std::string_view folder);

}  // namespace quillon::resolution
