#include "log/log_settings.h"

#include <optional>
#include <string_view>

#include "platform/dlog.h"

namespace quillon::workstation {
namespace {

constexpr std::string_view kFilePrefix = "file:";
constexpr std::string_view kJsonPrefix = "json:";

struct Target {
  LogTarget target;
  std::string path;
};

std::optional<Target> targetWithPath(std::string_view value) {
  if (value.starts_with(kFilePrefix) && value.size() > kFilePrefix.size()) {
    return Target{LogTarget::kFile, std::string(value.substr(kFilePrefix.size()))};
  }
  if (value.starts_with(kJsonPrefix) && value.size() > kJsonPrefix.size()) {
    return Target{LogTarget::kJson, std::string(value.substr(kJsonPrefix.size()))};
  }
  return std::nullopt;
}

std::optional<Target> parseTarget(std::string_view value) {
  if (value == "terminal") {
    return Target{LogTarget::kTerminal, {}};
  }
  if (value == "journal") {
    return Target{LogTarget::kJournal, {}};
  }
  if (value == "none") {
    return Target{LogTarget::kNone, {}};
  }
  return targetWithPath(value);
}

std::optional<int> parseLevel(std::string_view value) {
  // "debug" is the lowest level. It includes lower priorities too.
  if (value == "debug") {
    return 0;
  }
  if (value == "info") {
    return DLOG_INFO;
  }
  if (value == "error") {
    return DLOG_ERROR;
  }
  return std::nullopt;
}

std::string problem(const char* variable, std::string_view value, const char* accepted,
                    const char* fallback) {
  return std::string(variable) + "='" + std::string(value) + "' is not understood; it takes " +
         accepted + "; going on with " + fallback;
}

}  // namespace

LogSettings parseLogSettings(const char* target, const char* level) {
  LogSettings settings;
  settings.level = DLOG_ERROR;
  settings.applicationOutput = target == nullptr && level == nullptr;
  if (target != nullptr) {
    if (auto parsed = parseTarget(target)) {
      settings.target = parsed->target;
      settings.path = std::move(parsed->path);
      settings.level = 0;
    } else {
      settings.problems.push_back(problem("QUILLON_LOG", target,
                                          "terminal, journal, file:PATH, json:PATH or none",
                                          "errors on the terminal"));
    }
  }
  if (level != nullptr) {
    if (const auto parsed = parseLevel(level)) {
      settings.level = *parsed;
    } else {
      settings.problems.push_back(problem("QUILLON_LOG_LEVEL", level, "debug, info or error",
                                          settings.level == 0 ? "debug" : "error"));
    }
  }
  return settings;
}

}  // namespace quillon::workstation
