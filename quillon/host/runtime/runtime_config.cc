#include "quillon/host/runtime/runtime_config.h"

#include <nlohmann/json.hpp>

#include <cerrno>

#include "quillon/base/files.h"

namespace quillon::host {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr char kFrameworkName[] = "Microsoft.NETCore.App";
constexpr char kDepsFile[] = "Microsoft.NETCore.App.deps.json";
constexpr char kRuntimePack[] = "Microsoft.NETCore.App.Runtime.";

// Readers of nested values, such as dump(), call themselves for each level.
constexpr int kMaxDepth = 64;
// ordered_json compares each name of an object with all names before it.
constexpr int kMaxNames = 4096;

constexpr bool kStrict = true;
constexpr bool kIgnoreComments = true;  // as .NET's own host does

// Counts levels. Stops the parser at values that are nested too deeply.
class JsonEvents : public nlohmann::json_sax<Json> {
 public:
  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_array(std::size_t) override { return ++depth_ <= kMaxDepth; }
  bool end_array() override { return depth_-- > 0; }
  bool start_object(std::size_t) override { return ++depth_ <= kMaxDepth; }
  bool end_object() override { return depth_-- > 0; }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

 protected:
  [[nodiscard]] int depth() const { return depth_; }

 private:
  int depth_ = 0;
};

class SizeCheck : public JsonEvents {
 public:
  bool key(string_t&) override { return ++names_ <= kMaxNames; }

  // What exceeds a limit; empty if nothing does.
  [[nodiscard]] std::string excess() const {
    if (depth() > kMaxDepth) {
      return "is nested deeper than " + std::to_string(kMaxDepth) + " levels";
    }
    return names_ > kMaxNames ? "has more than " + std::to_string(kMaxNames) + " names" : "";
  }

 private:
  int names_ = 0;
};

std::string excessIn(const std::string& text) {
  SizeCheck check;
  Json::sax_parse(text, &check, Json::input_format_t::json, kStrict, kIgnoreComments);
  return check.excess();
}

tl::unexpected<Failure> unusable(const fs::path& file, const std::string& why) {
  return fail("'" + file.string() + "' " + why, "build the application again");
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
class FrameworkVersion : public JsonEvents {
 public:
  std::string version;

  bool key(string_t& name) override {
    if (depth() == 1) {
      inTargets_ = name == "targets";
    }
    if (!inTargets_ || depth() != kLibraryDepth || name.rfind(kRuntimePack, 0) != 0) {
      return true;
    }
    version = name.substr(name.find('/') + 1);
    return false;
  }

 private:
  static constexpr int kLibraryDepth = 3;  // {"targets": {<target>: {<library>

  bool inTargets_ = false;
};

}  // namespace

std::filesystem::path runtimeConfigOf(std::filesystem::path assembly) {
  return assembly.replace_extension(".runtimeconfig.json");
}

Expected<RuntimeConfig> readRuntimeConfig(const std::filesystem::path& assembly) {
  const fs::path file = runtimeConfigOf(assembly);
  const auto text = readWholeFile(file, kMaxTextSize);
  if (!text) {
    const int error = errno;
    if (error == ENOENT) {
      return RuntimeConfig{};
    }
    return unusable(file, "cannot be read: " + fileErrorText(error, kMaxTextSize));
  }
  if (const std::string excess = excessIn(*text); !excess.empty()) {
    return unusable(file, excess);
  }
  const Json json = Json::parse(*text, nullptr, /*allow_exceptions=*/false, kIgnoreComments);
  if (!json.is_object()) {
    return unusable(file, "is not valid JSON");
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
  FrameworkVersion reader;
  Json::sax_parse(readWholeFile(framework / kDepsFile, kMaxTextSize).value_or(""), &reader);
  return reader.version;
}

}  // namespace quillon::host
