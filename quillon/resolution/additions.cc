#include "quillon/resolution/additions.h"

#include <algorithm>
#include <filesystem>

namespace quillon::resolution {
namespace {

constexpr std::string_view kFramework = "framework";
constexpr std::string_view kMissing = "missing";
constexpr std::string_view kAssembly = "assembly";
constexpr std::string_view kNative = "native";
constexpr std::string_view kWarning = "warning";
constexpr std::string_view kAssemblyExtensions[] = {".dll", ".exe"};

bool isWord(std::string_view text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](unsigned char c) { return c > ' ' && c < 0x7f; });
}

bool isText(std::string_view text) {
  return std::none_of(text.begin(), text.end(), [](unsigned char c) { return c < ' '; });
}

bool isAssembly(std::string_view path) {
  return isPlainPath(path) &&
         std::any_of(std::begin(kAssemblyExtensions), std::end(kAssemblyExtensions),
                     [&](auto suffix) { return path.ends_with(suffix); });
}

// Removes and returns the text up to the next separator.
std::string_view take(std::string_view& rest, char separator) {
  const size_t end = std::min(rest.find(separator), rest.size());
  const std::string_view part = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return part;
}

void addLine(std::string& text, std::string_view key, const std::string& value) {
  text.append(key).append(1, ' ').append(value).append(1, '\n');
}

std::string textOf(const SharedFramework& framework) {
  return framework.name + " " + framework.version + " " + framework.directory;
}

std::optional<SharedFramework> parseFramework(std::string_view value) {
  const std::string_view name = take(value, ' ');
  const std::string_view version = take(value, ' ');
  if (!isWord(name) || !isWord(version)) {
    return std::nullopt;
  }
  return SharedFramework{std::string(name), std::string(version), std::string(value)};
}

bool addFramework(Additions& additions, std::string_view value) {
  auto framework = parseFramework(value);
  if (!framework || !isPlainPath(framework->directory)) {
    return false;
  }
  additions.frameworks.push_back(std::move(*framework));
  return true;
}

bool setMissing(Additions& additions, std::string_view value) {
  additions.missing = parseFramework(value);
  return additions.missing && additions.missing->directory.empty();
}

bool parseLine(Additions& additions, std::string_view key, std::string_view value) {
  if (key == kFramework) {
    return addFramework(additions, value);
  }
  if (key == kMissing) {
    return setMissing(additions, value);
  }
  if (key == kAssembly && isAssembly(value)) {
    additions.assemblies.emplace_back(value);
    return true;
  }
  if (key == kNative && isPlainPath(value)) {
    additions.nativeFolders.emplace_back(value);
    return true;
  }
  if (key == kWarning && isText(value)) {
    additions.warning = value;
    return true;
  }
  return false;
}

std::string countText(size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

// Those that belong to no framework.
std::vector<std::string> ownOf(const Additions& additions, std::vector<std::string> paths) {
  std::erase_if(paths, [&](const std::string& path) {
    return std::any_of(additions.frameworks.begin(), additions.frameworks.end(),
                       [&](const auto& framework) { return isBelow(path, framework.directory); });
  });
  return paths;
}

}  // namespace

bool isBelow(std::string_view path, std::string_view folder) {
  return !folder.empty() && path.starts_with(folder) &&
         (path.size() == folder.size() || path[folder.size()] == '/');
}

bool isPlainPath(std::string_view path) {
  if (!path.starts_with('/') || !isText(path) || path.find(':') != std::string_view::npos) {
    return false;
  }
  const std::filesystem::path whole(path);
  return std::none_of(whole.begin(), whole.end(),
                      [](const auto& part) { return part == "." || part == ".."; });
}

std::string sourceOf(const Additions& additions, std::string_view path) {
  for (const SharedFramework& framework : additions.frameworks) {
    if (isBelow(path, framework.directory)) {
      return framework.name + " " + framework.version;
    }
  }
  return "the application's dependency file";
}

std::vector<std::string> ownAssemblies(const Additions& additions) {
  return ownOf(additions, additions.assemblies);
}

std::string describe(const Additions& additions) {
  std::string text;
  const auto add = [&](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
  for (const SharedFramework& framework : additions.frameworks) {
    add(framework.name + " " + framework.version);
  }
  if (const size_t count = ownAssemblies(additions).size()) {
    add(countText(count, "selected assembly", "selected assemblies"));
  }
  if (const size_t count = ownOf(additions, additions.nativeFolders).size()) {
    add(countText(count, "native folder", "native folders"));
  }
  if (!additions.warning.empty()) {
    add("with a warning");
  }
  return text;
}

std::string format(const Additions& additions) {
  std::string text;
  for (const SharedFramework& framework : additions.frameworks) {
    addLine(text, kFramework, textOf(framework));
  }
  if (additions.missing) {
    addLine(text, kMissing, additions.missing->name + " " + additions.missing->version);
  }
  for (const std::string& path : additions.assemblies) {
    if (isAssembly(path)) {
      addLine(text, kAssembly, path);
    }
  }
  for (const std::string& folder : additions.nativeFolders) {
    if (isPlainPath(folder)) {
      addLine(text, kNative, folder);
    }
  }
  if (!additions.warning.empty()) {
    addLine(text, kWarning, additions.warning);
  }
  return text;
}

std::optional<Additions> parseAdditions(std::string_view text) {
  Additions additions;
  while (!text.empty()) {
    std::string_view line = take(text, '\n');
    const std::string_view key = take(line, ' ');
    if (!parseLine(additions, key, line)) {
      return std::nullopt;
    }
  }
  return additions;
}

}  // namespace quillon::resolution
