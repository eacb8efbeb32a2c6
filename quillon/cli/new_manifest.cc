#include "quillon/cli/new_manifest.h"

#include <algorithm>
#include <string_view>
#include <system_error>
#include <vector>

#include "quillon/base/shell_word.h"
#include "quillon/host/assemblies/assembly_image.h"

namespace quillon::cli {
namespace {

namespace fs = std::filesystem;
using workstation::ManifestText;

constexpr std::string_view kConfiguration = ".runtimeconfig.json";
constexpr char kAssemblyExtension[] = ".dll";

constexpr char kTemplate[] =
    R"(# The package of the files in this folder, for: quillon package install FOLDER

[package]
id = @ID@
version = @VERSION@
files = "."  # the folder to copy, relative to this file
# A package without this privilege is refused at its launch.
privileges = ["/privilege/internal/default/platform"]
# The package's folder on the device; this is the default.
# root = @ROOT@

[[application]]
id = @ID@  # for: quillon launch
exec = @EXEC@  # relative to the root
type = "inhouse"  # or inhouseapitest, dotnet, normal
# component = "service"  # default: ui
# Packages whose assemblies the application uses:
# metadata = { "/tv/metadata/d.pc/required" = "ID;ID" }
)";

// The file names of the assemblies that have an entry point, sorted.
std::vector<std::string> applicationsIn(const fs::path& folder) {
  std::vector<std::string> assemblies;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    std::string name = entry->path().filename().string();
    if (name.size() <= kConfiguration.size() || !name.ends_with(kConfiguration)) {
      continue;
    }
    name.replace(name.size() - kConfiguration.size(), name.npos, kAssemblyExtension);
    std::error_code ignored;
    if (fs::is_regular_file(folder / name, ignored)) {
      assemblies.push_back(std::move(name));
    }
  }
  std::sort(assemblies.begin(), assemblies.end());
  return assemblies;
}

// The file name of an application that was published as a single file; empty if there is none.
std::string singleFileIn(const fs::path& folder) {
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (host::isSingleFileProgram(entry->path())) {
      return entry->path().filename().string();
    }
  }
  return {};
}

Failure noApplication(const fs::path& folder) {
  if (const std::string program = singleFileIn(folder); !program.empty()) {
    return {"the folder '" + folder.string() + "' has no assembly: '" + program +
                "' is a single-file application",
            "publish it with -p:PublishSingleFile=false"};
  }
  return {"the folder '" + folder.string() +
              "' has no application: no assembly with a .runtimeconfig.json beside it",
          "name the folder that dotnet publish wrote, such as bin/Release/net8.0/publish"};
}

// A basic string of TOML.
std::string quoted(const std::string& text) {
  std::string escaped = "\"";
  for (const char letter : text) {
    if (letter == '"' || letter == '\\') {
      escaped += '\\';
    }
    escaped += letter;
  }
  return escaped + "\"";
}

void replaceAll(std::string& text, std::string_view mark, const std::string& value) {
  for (std::size_t at = text.find(mark); at != text.npos; at = text.find(mark, at + value.size())) {
    text.replace(at, mark.size(), value);
  }
}

}  // namespace

Expected<std::string> findApplicationAssembly(const fs::path& folder) {
  std::error_code error;
  if (!fs::is_directory(folder, error)) {
    return fail("there is no folder '" + folder.string() + "'",
                "name the folder that dotnet publish or dotnet build wrote");
  }
  const std::vector<std::string> assemblies = applicationsIn(folder);
  if (assemblies.empty()) {
    return tl::unexpected(noApplication(folder));
  }
  if (assemblies.size() > 1) {
    std::string names;
    for (const std::string& name : assemblies) {
      names += (names.empty() ? "" : ", ") + name;
    }
    return fail("the folder '" + folder.string() + "' has several applications: " + names,
                "choose one: quillon package new " + shellWord(folder.string()) + " --exec " +
                    shellWord(assemblies.front()));
  }
  return assemblies.front();
}

NewPackage packageOfAssembly(const std::string& assembly) {
  return {assembly, fs::path(assembly).stem().string()};
}

ManifestText newManifest(const fs::path& folder, const NewPackage& package) {
  std::string text = kTemplate;
  replaceAll(text, "@ID@", quoted(package.id));
  replaceAll(text, "@VERSION@", quoted(package.version));
  replaceAll(text, "@ROOT@", quoted("/opt/usr/apps/" + package.id));
  replaceAll(text, "@EXEC@", quoted(package.assembly));
  return {(folder / kManifestName).string(), std::move(text)};
}

Expected<ManifestText> manifestAt(const fs::path& path) {
  std::error_code error;
  if (!fs::is_directory(path, error)) {
    return workstation::readManifestText(fs::absolute(path).string());
  }
  const fs::path folder = fs::absolute(path).lexically_normal();
  if (fs::exists(folder / kManifestName, error)) {
    return workstation::readManifestText((folder / kManifestName).string());
  }
  ASSIGN_OR_RETURN(const std::string assembly, findApplicationAssembly(folder));
  return newManifest(folder, packageOfAssembly(assembly));
}

}  // namespace quillon::cli
