#include "quillon/host/runtime/runtime_config.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

#include "quillon/base/files.h"

namespace quillon::host {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr char kFrameworkName[] = "Microsoft.NETCore.App";
constexpr char kDepsFile[] = "Microsoft.NETCore.App.deps.json";
constexpr char kRuntimePack[] = "Microsoft.NETCore.App.Runtime.";

// Functions for nested values, such as dump(), call themselves for each level.
constexpr int kMaxDepth = 64;
// ordered_json compares each name of an object with all names before it, and the destructor of an
// array allocates memory for each of its values.
constexpr int kMaxValues = 4096;

constexpr bool kStrict = true;
constexpr bool kIgnoreComments = true;  // as .NET's own host does

// Ignores the content of a JSON text, but stops the parser when it exceeds a limit.
class LimitedEvents : public nlohmann::json_sax<Json> {
 public:
  bool null() override { return count(); }
  bool boolean(bool) override { return count(); }
  bool number_integer(number_integer_t) override { return count(); }
  bool number_unsigned(number_unsigned_t) override { return count(); }
  bool number_float(number_float_t, const string_t&) override { return count(); }
  bool string(string_t&) override { return count(); }
  bool binary(binary_t&) override { return count(); }
  bool key(string_t&) override { return true; }
  bool start_array(std::size_t) override { return enter(); }
  bool end_array() override { return depth_-- > 0; }
  bool start_object(std::size_t) override { return enter(); }
  bool end_object() override { return depth_-- > 0; }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

  // What exceeds a limit; empty if nothing does.
  [[nodiscard]] std::string excess() const {
    if (depth_ > kMaxDepth) {
      return "is nested deeper than " + std::to_string(kMaxDepth) + " levels";
    }
    return values_ > kMaxValues ? "has more than " + std::to_string(kMaxValues) + " values" : "";
  }

 protected:
  [[nodiscard]] int depth() const { return depth_; }

 private:
  bool count() { return ++values_ <= kMaxValues; }
  bool enter() { return count() && ++depth_ <= kMaxDepth; }

  int depth_ = 0;
  int values_ = 0;
};

std::string excessIn(const std::string& text) {
  LimitedEvents events;
  Json::sax_parse(text, &events, Json::input_format_t::json, kStrict, kIgnoreComments);
  return events.excess();
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

// Properties whose values are addresses in the process of the host that sets them.
constexpr std::array kAddresses = {"HOST_RUNTIME_CONTRACT", "PINVOKE_OVERRIDE", "BUNDLE_PROBE"};

// Whether a property makes the runtime load a file, or use an address, before the plug-in decides
// about the application. The name of a garbage collector is that of a file of the framework. The
// runtime reads the name up to a NUL byte.
bool actsTooEarly(std::string_view name, const std::string& value) {
  return std::find(kAddresses.begin(), kAddresses.end(), name) != kAddresses.end() ||
         name == "System.GC.Path" ||
         (name == "System.GC.Name" && value.find('/') != std::string::npos);
}

void addFramework(RuntimeConfig& config, const Json& framework) {
  const Json& name = member(framework, "name");
  if (!name.is_string()) {
    return;
  }
  if (name.get<std::string>() != kFrameworkName) {
    config.otherFrameworks.push_back(name.get<std::string>());
    return;
  }
  const Json& version = member(framework, "version");
  if (version.is_string()) {
    config.frameworkVersion = version.get<std::string>();
  }
}

// "framework" states one, "frameworks" several.
void addFrameworks(RuntimeConfig& config, const Json& options) {
  for (const Json& framework : member(options, "frameworks")) {
    addFramework(config, framework);
  }
  addFramework(config, member(options, "framework"));
}

// Reads the framework's dependency file up to the key that contains its version, "targets": {...:
// {"Microsoft.NETCore.App.Runtime.linux-x64/10.0.12": ..., which is near the start of a file of
// hundreds of lines.
class FrameworkVersion : public LimitedEvents {
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
    if (error == EMFILE || error == ENFILE) {
      return fail("'" + file.string() + "' cannot be read: " + fileErrorText(error, kMaxTextSize),
                  "raise the limit of open files (ulimit -n)");
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
  addFrameworks(config, options);
  const Json& properties = member(options, "configProperties");
  if (!properties.is_object()) {
    return config;  // items() accepts other types too
  }
  for (const auto& [name, value] : properties.items()) {
    std::string setting = textOf(value);
    if (actsTooEarly(name.c_str(), setting)) {
      return fail("'" + file.string() + "' sets '" + name + "', which a package may not",
                  "remove the setting; the variable DOTNET_GCPath names a garbage collector");
    }
    config.properties.emplace_back(name, std::move(setting));
  }
  return config;
}

std::string frameworkVersionOf(const std::filesystem::path& framework) {
  FrameworkVersion reader;
  Json::sax_parse(readWholeFile(framework / kDepsFile, kMaxTextSize).value_or(""), &reader);
  return reader.version;
}

}  // namespace quillon::host
