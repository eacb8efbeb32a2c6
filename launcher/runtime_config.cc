#include "launcher/runtime_config.h"

#include <fstream>
#include <nlohmann/json.hpp>

namespace quillon::launcher {
namespace {

using Json = nlohmann::ordered_json;

constexpr char kFrameworkName[] = "Microsoft.NETCore.App";
constexpr char kDepsFile[] = "Microsoft.NETCore.App.deps.json";
constexpr char kRuntimePack[] = "Microsoft.NETCore.App.Runtime.";

// Comments are allowed, as .NET's own host allows them.
Json parseFile(const std::filesystem::path& file) {
  std::ifstream stream(file);
  return Json::parse(stream, nullptr, /*allow_exceptions=*/false, /*ignore_comments=*/true);
}

const Json& member(const Json& object, const char* name) {
  static const Json kNothing = Json::object();
  if (!object.is_object()) return kNothing;
  const auto found = object.find(name);
  return found == object.end() ? kNothing : *found;
}

std::string textOf(const Json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

bool isBaseFramework(const Json& framework) {
  const Json& name = member(framework, "name");
  return name.is_string() && name.get<std::string>() == kFrameworkName;
}

std::string versionOf(const Json& framework) {
  const Json& version = member(framework, "version");
  return version.is_string() ? version.get<std::string>() : std::string();
}

std::string wantedVersion(const Json& options) {
  const Json& only = member(options, "framework");
  if (isBaseFramework(only)) return versionOf(only);
  for (const Json& framework : member(options, "frameworks")) {
    if (isBaseFramework(framework)) return versionOf(framework);
  }
  return {};
}

}  // namespace

Expected<RuntimeConfig> readRuntimeConfig(const std::filesystem::path& assembly) {
  std::filesystem::path file = assembly;
  file.replace_extension(".runtimeconfig.json");
  std::error_code ignored;
  if (!std::filesystem::exists(file, ignored)) return RuntimeConfig{};
  const Json json = parseFile(file);
  if (!json.is_object()) {
    return fail("'" + file.string() + "' is not valid JSON", "build the application again");
  }
  const Json& options = member(json, "runtimeOptions");
  RuntimeConfig config;
  config.frameworkVersion = wantedVersion(options);
  for (const auto& [name, value] : member(options, "configProperties").items()) {
    config.properties.emplace_back(name, textOf(value));
  }
  return config;
}

std::string frameworkVersionOf(const std::filesystem::path& framework) {
  const Json json = parseFile(framework / kDepsFile);
  for (const auto& target : member(json, "targets")) {
    if (!target.is_object()) continue;
    for (const auto& [library, unused] : target.items()) {
      if (library.rfind(kRuntimePack, 0) == 0) return library.substr(library.find('/') + 1);
    }
  }
  return {};
}

}  // namespace quillon::launcher
