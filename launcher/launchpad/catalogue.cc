#include "launcher/launchpad/catalogue.h"

#include <device_paths.h>
#include <workstation/packages.h>

#include <algorithm>

#include "launcher/framework_check.h"
#include "launcher/launchpad/stamp.h"
#include "launcher/runtime_config.h"

namespace quillon::launchpad {
namespace {

namespace fs = std::filesystem;

constexpr size_t kMostKnown = 1000;

std::string stampOfApplication(const launcher::LaunchTarget& target) {
  return workstation::registryStamp() + stampOf(target.assembly) +
         stampOf(launcher::runtimeConfigOf(target.assembly)) + stampOf(device_paths::kNetcoreapp);
}

Expected<void> requireRelevantPath(const Request& request) {
  if (!request.exec || fs::path(*request.exec).is_absolute()) return {};
  return fail("the path '" + *request.exec + "' depends on the working directory");
}

Expected<Entry> lookUp(const Request& request) {
  launcher::LaunchOptions options;
  options.appId = request.appId;
  options.type = request.type;
  options.exec = request.exec;
  auto target = launcher::findTarget(options);
  if (!target) return tl::unexpected<Failure>(target.error());
  if (auto found = launcher::requireAssembly(*target); !found) {
    return tl::unexpected<Failure>(found.error());
  }
  // A prepared process entered the zone before anybody knew its package.
  if (launcher::entersZoneInDebugMode(*target)) {
    return fail("its package asks for debug mode, which is decided before the zone is entered");
  }
  auto config = launcher::readRuntimeConfig(target->assembly);
  if (!config) return tl::unexpected(config.error());
  const std::string found = launcher::frameworkVersionOf(device_paths::kNetcoreapp);
  if (!launcher::serves(found, config->frameworkVersion)) {
    return fail("the application wants another .NET runtime");
  }
  // Their order means nothing to the runtime.
  std::sort(config->properties.begin(), config->properties.end());
  PoolKey key{target->type, request.raw, std::move(config->properties)};
  return Entry{std::move(*target), std::move(key)};
}

}  // namespace

Expected<Entry> Catalogue::find(const Request& request) {
  if (auto usable = requireRelevantPath(request); !usable) return tl::unexpected(usable.error());
  const Name name{request.appId, request.type, request.exec, request.raw};
  const auto found = known_.find(name);
  if (found != known_.end() &&
      found->second.stamp == stampOfApplication(found->second.entry.target)) {
    return found->second.entry;
  }
  auto entry = lookUp(request);
  if (!entry) return entry;
  if (known_.size() >= kMostKnown) known_.clear();
  known_[name] = {stampOfApplication(entry->target), *entry};
  return entry;
}

std::vector<PoolKey> Catalogue::keysOfInstalled(const std::vector<std::string>& types) {
  std::vector<PoolKey> keys;
  const auto packages = workstation::listPackages();
  if (!packages) return keys;
  for (const workstation::Package& package : *packages) {
    for (const workstation::Application& application : package.applications) {
      Request request;
      request.appId = application.id;
      const auto entry = find(request);
      const bool isWanted =
          types.empty() || std::find(types.begin(), types.end(), application.type) != types.end();
      if (!entry || !isWanted) continue;
      if (std::find(keys.begin(), keys.end(), entry->key) == keys.end()) keys.push_back(entry->key);
    }
  }
  return keys;
}

}  // namespace quillon::launchpad
