#include "quillon/validator/policy.h"

#include <toml++/toml.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <optional>

#include "quillon/base/files.h"

namespace quillon::validator {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kDefault = "default";
constexpr std::string_view kDeniedPaths = "deny-paths";
constexpr std::string_view kAllowedPaths = "allow-paths";
constexpr std::string_view kAllowedDigests = "allow-sha256";
constexpr std::array<std::string_view, 4> kKeys = {kDefault, kDeniedPaths, kAllowedDigests,
                                                   kAllowedPaths};

constexpr char kDefaultRemedy[] = "write \"allow\" or \"deny\"";
constexpr char kPathRemedy[] = "write device paths such as \"/opt/usr/apps/org.example.clock\"";
constexpr char kDigestRemedy[] =
    "write what sha256sum prints for the file, 64 hexadecimal digits each";
constexpr std::size_t kDigestLength = 64;

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

bool isDigest(const std::string& text) {
  return text.size() == kDigestLength && std::all_of(text.begin(), text.end(), [](unsigned char c) {
           return std::isxdigit(c) != 0;
         });
}

bool isPath(const std::string& text) {
  return text.starts_with('/') && text == fs::path(text).lexically_normal().string() &&
         text.find('\0') == std::string::npos;
}

// Interprets a policy document. Reports the first mistake.
class PolicyReader {
 public:
  PolicyReader(std::string name, const toml::table& document)
      : name_(std::move(name)), document_(document) {}

  Expected<Policy> read() {
    checkKeys();
    Policy policy;
    policy.allowsByDefault = readDefault() == "allow";
    for (const std::string& path : paths(kDeniedPaths)) {
      policy.deniedPaths.push_back(path);
    }
    for (const std::string& path : paths(kAllowedPaths)) {
      policy.allowedPaths.push_back(path);
    }
    for (const std::string& digest : texts(kAllowedDigests, isDigest, kDigestRemedy)) {
      policy.allowedDigests.insert(lowerCase(digest));
    }
    if (failure_) {
      return tl::unexpected(*failure_);
    }
    return policy;
  }

 private:
  void mistake(const toml::node& where, std::string_view key, const std::string& what,
               std::string remedy) {
    if (failure_) {
      return;
    }
    // The top table has no line number.
    const auto line = std::max<toml::source_index>(where.source().begin.line, 1);
    failure_ =
        Failure{name_ + ":" + std::to_string(line) + ": key '" + std::string(key) + "' " + what,
                std::move(remedy)};
  }

  void checkKeys() {
    for (const auto& [key, node] : document_) {
      if (std::find(kKeys.begin(), kKeys.end(), key.str()) != kKeys.end()) {
        continue;
      }
      std::string all;
      for (const std::string_view known : kKeys) {
        all += (all.empty() ? "" : ", ") + std::string(known);
      }
      mistake(node, key.str(), "is unknown", "the known keys are " + all);
    }
  }

  std::string readDefault() {
    const toml::node* node = document_.get(kDefault);
    if (node == nullptr) {
      mistake(document_, kDefault, "is missing", kDefaultRemedy);
      return {};
    }
    const auto value = node->value_exact<std::string>();
    if (value != "allow" && value != "deny") {
      mistake(*node, kDefault, "is neither \"allow\" nor \"deny\"", kDefaultRemedy);
    }
    return value.value_or("");
  }

  template <typename Rule>
  std::vector<std::string> texts(std::string_view key, const Rule& rule, const char* remedy) {
    std::vector<std::string> all;
    const toml::node* node = document_.get(key);
    if (node == nullptr) {
      return all;
    }
    if (!node->is_array()) {
      mistake(*node, key, "is not a list", remedy);
      return all;
    }
    for (const toml::node& item : *node->as_array()) {
      const auto value = item.value_exact<std::string>();
      if (!value || !rule(*value)) {
        mistake(item, key,
                value ? "contains '" + *value + "'" : "contains a value that is not a string",
                remedy);
      }
      all.push_back(value.value_or(""));
    }
    return all;
  }

  // Returns the paths of a list without final slashes.
  std::vector<std::string> paths(std::string_view key) {
    std::vector<std::string> all = texts(key, isPath, kPathRemedy);
    for (std::string& path : all) {
      while (path.size() > 1 && path.ends_with('/')) {
        path.pop_back();
      }
    }
    return all;
  }

  std::string name_;
  const toml::table& document_;
  std::optional<Failure> failure_;
};

}  // namespace

Expected<Policy> readPolicy(const fs::path& file) {
  const auto content = readWholeFile(file, kMaxTextSize);
  if (!content) {
    return fail(
        "cannot read the policy '" + file.string() + "': " + fileErrorText(errno, kMaxTextSize),
        "name a readable TOML file");
  }
  try {
    // Without the name of the file, which toml++ would copy in a noexcept constructor.
    const toml::table document = toml::parse(*content);
    return PolicyReader(file.string(), document).read();
  } catch (const toml::parse_error& error) {
    return fail(file.string() + ":" + std::to_string(error.source().begin.line) +
                    ": invalid TOML: " + std::string(error.description()),
                "correct it there");
  }
}

}  // namespace quillon::validator
