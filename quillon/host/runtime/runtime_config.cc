#include "quillon/host/runtime/runtime_config.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <memory>

#include "quillon/base/files.h"

namespace quillon::host {
namespace {

using Json = nlohmann::ordered_json;

constexpr char kFrameworkName[] = "Microsoft.NETCore.App";
constexpr char kDepsFile[] = "Microsoft.NETCore.App.deps.json";
constexpr char kRuntimePack[] = "Microsoft.NETCore.App.Runtime.";

// Allows comments, as .NET's own host does.
Json parseFile(const std::filesystem::path& file) {
  return Json::parse(readWholeFile(file, kMaxTextSize).value_or(""), nullptr,
                     /*allow_exceptions=*/false, /*ignore_comments=*/true);
}

const Json& member(const Json& object, const char* name) {
  static const Json kNothing = Json::object();
  if (!object.is_object()) {
    return kNothing;
  }
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
  if (isBaseFramework(only)) {
    return versionOf(only);
  }
  for (const Json& framework : member(options, "frameworks")) {
    if (isBaseFramework(framework)) {
      return versionOf(framework);
    }
  }
  return {};
}

// Reads the framework's dependency file up to the key that contains its version, "targets": {...:
// {"Microsoft.NETCore.App.Runtime.linux-x64/10.0.12": ..., which is near the start of a file of
// hundreds of lines.
class FrameworkVersion : public nlohmann::json_sax<Json> {
 public:
  std::string version;

  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_array(std::size_t) override { return ++depth_ > 0; }
  bool end_array() override { return depth_-- > 0; }
  bool start_object(std::size_t) override { return ++depth_ > 0; }
  bool end_object() override { return depth_-- > 0; }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }
  bool key(string_t& name) override {
    if (depth_ == 1) {
      inTargets_ = name == "targets";
    }
    if (!inTargets_ || depth_ != kLibraryDepth || name.rfind(kRuntimePack, 0) != 0) {
      return true;
    }
    version = name.substr(name.find('/') + 1);
    return false;
  }

 private:
  static constexpr int kLibraryDepth = 3;  // {"targets": {<target>: {<library>

  int depth_ = 0;
  bool inTargets_ = false;
};

}  // namespace

std::filesystem::path runtimeConfigOf(std::filesystem::path assembly) {
  return assembly.replace_extension(".runtimeconfig.json");
}

Expected<RuntimeConfig> readRuntimeConfig(const std::filesystem::path& assembly) {
  const std::filesystem::path file = runtimeConfigOf(assembly);
  std::error_code ignored;
  if (!std::filesystem::exists(file, ignored)) {
    return RuntimeConfig{};
  }
  const Json json = parseFile(file);
  if (!json.is_object()) {
    return fail("'" + file.string() + "' is not valid JSON", "build the application again");
  }
  const Json& options = member(json, "runtimeOptions");
  RuntimeConfig config;
  config.frameworkVersion = wantedVersion(options);
  const Json& properties = member(options, "configProperties");
  if (!properties.is_object()) {
    return config;  // items() accepts other types too
  }
  for (const auto& [name, value] : properties.items()) {
    config.properties.emplace_back(name, textOf(value));
  }
  return config;
}

std::string frameworkVersionOf(const std::filesystem::path& framework) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen((framework / kDepsFile).c_str(), "re"),
                                                   fclose);
  FrameworkVersion reader;
  if (file) {
    Json::sax_parse(file.get(), &reader);
  }
  return reader.version;
}

}  // namespace quillon::host
