#include "log/log_target.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "quillon/base/files.h"
#include "workstation/log_config.h"

namespace quillon::workstation {
namespace {

// Programs and shells use descriptors below this for themselves.
constexpr int kFirstLogDescriptor = 200;

constexpr std::array<std::pair<LogTarget, const char*>, 5> kTargetNames = {{
    {LogTarget::kTerminal, "terminal"},
    {LogTarget::kJournal, "journal"},
    {LogTarget::kFile, "file"},
    {LogTarget::kJson, "json"},
    {LogTarget::kNone, "none"},
}};

// Moves a descriptor out of the range that programs use for themselves.
Descriptor raised(Descriptor low) {
  Descriptor high(fcntl(low.get(), F_DUPFD_CLOEXEC, kFirstLogDescriptor));
  return high ? std::move(high) : std::move(low);
}

Descriptor openTerminal(std::string& problem) {
  Descriptor fd(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, kFirstLogDescriptor));
  if (!fd) {
    fd = Descriptor(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  }
  if (!fd) {
    problem = std::string("standard error is closed: ") + std::strerror(errno);
  }
  return fd;
}

Descriptor openFile(const std::string& path, std::string& problem) {
  Descriptor fd = openForAppending(path);
  if (!fd) {
    problem = "QUILLON_LOG: cannot open the log file '" + path + "': " + fileErrorText(errno) +
              "; going on with errors on the terminal";
    return fd;
  }
  return raised(std::move(fd));
}

}  // namespace

const char* nameOf(LogTarget target) {
  for (const auto& [known, name] : kTargetNames) {
    if (known == target) {
      return name;
    }
  }
  return "";
}

std::optional<LogTarget> targetNamed(const std::string& name) {
  for (const auto& [target, known] : kTargetNames) {
    if (name == known) {
      return target;
    }
  }
  return std::nullopt;
}

bool needsDescriptor(LogTarget target) {
  return target != LogTarget::kJournal && target != LogTarget::kNone;
}

Descriptor openTarget(const LogSettings& settings, std::string& problem) {
  return settings.target == LogTarget::kTerminal ? openTerminal(problem)
                                                 : openFile(settings.path, problem);
}

std::optional<LogConfig> openLogOfEnvironment() {
  const LogSettings settings =
      parseLogSettings(std::getenv("QUILLON_LOG"), std::getenv("QUILLON_LOG_LEVEL"));
  if (!settings.problems.empty() || settings.target == LogTarget::kJournal) {
    return std::nullopt;
  }
  LogConfig config{nameOf(settings.target), settings.level, settings.applicationOutput, -1};
  if (needsDescriptor(settings.target)) {
    std::string problem;
    config.descriptor = openTarget(settings, problem).release();
    if (!problem.empty()) {
      return std::nullopt;
    }
  }
  return config;
}

}  // namespace quillon::workstation
