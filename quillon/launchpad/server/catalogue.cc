#include "quillon/launchpad/server/catalogue.h"

#include <fcntl.h>

#include <algorithm>

#include "device_paths.h"
#include "quillon/host/runtime/framework_check.h"
#include "quillon/host/runtime/runtime_config.h"
#include "quillon/launchpad/server/fingerprint.h"
#include "workstation/packages.h"

namespace quillon::launchpad {
namespace {

namespace fs = std::filesystem;

constexpr size_t kMostKnown = 1000;

std::vector<std::string> filesOf(const host::LaunchTarget& target) {
  return {target.assembly, host::runtimeConfigOf(target.assembly).string(),
          device_paths::kNetcoreapp};
}

std::string fingerprintOf(const std::vector<std::string>& files) {
  std::string fingerprint = workstation::registryFingerprint() + '\0';
  for (const std::string& file : files) appendFileIdentity(fingerprint, AT_FDCWD, file.c_str());
  return fingerprint;
}

Expected<void> requireRelevantPath(const Request& request) {
  if (!request.exec || fs::path(*request.exec).is_absolute()) return {};
  return fail("the path '" + *request.exec + "' depends on the working directory");
}

Expected<Entry> lookUp(const Request& request) {
  host::LaunchOptions options;
  options.appId = request.appId;
  options.type = request.type;
  options.exec = request.exec;
  auto target = host::findTarget(options);
  if (!target) return tl::unexpected<Failure>(target.error());
  RETURN_IF_FAILED(host::requireAssembly(*target));
  // A prepared process entered the zone before anybody knew its package.
  if (host::entersZoneInDebugMode(*target)) {
    return fail("its package asks for debug mode, which is decided before the zone is entered");
  }
  auto config = host::readRuntimeConfig(target->assembly);
  if (!config) return tl::unexpected(config.error());
  const std::string found = host::frameworkVersionOf(device_paths::kNetcoreapp);
  if (!host::serves(found, config->frameworkVersion)) {
    return fail("the application wants another .NET runtime");
  }
  // Their order means nothing to the runtime.
  std::sort(config->properties.begin(), config->properties.end());
  PoolKey key{target->type, request.raw, std::move(config->properties)};
  return Entry{std::move(*target), std::move(key)};
}

}  // namespace

Expected<std::shared_ptr<const Entry>> Catalogue::find(const Request& request) {
  RETURN_IF_FAILED(requireRelevantPath(request));
  const Name name{request.appId, request.type, request.exec, request.raw};
  const auto found = known_.find(name);
  if (found != known_.end() && found->second.fingerprint == fingerprintOf(found->second.files)) {
    return found->second.entry;
  }
  auto known = learn(
      request, found == known_.end() ? std::vector<std::string>() : std::move(found->second.files));
  if (found != known_.end()) known_.erase(found);
  if (!known) return tl::unexpected(known.error());
  if (known_.size() >= kMostKnown) known_.clear();
  return (known_[name] = std::move(*known)).entry;
}

// What changes while it is looked at is looked at again by the next request: an answer is good only
// for a fingerprint that is older. Which files it is made of is known after a first look.
//
// files  of an earlier answer
Expected<Catalogue::Known> Catalogue::learn(const Request& request,
                                            std::vector<std::string> files) {
  Known known;
  for (int look = 0; look < 2; ++look) {
    known.fingerprint = fingerprintOf(files);
    auto entry = lookUp(request);
    if (!entry) return tl::unexpected(entry.error());
    known.files = filesOf(entry->target);
    known.entry = std::make_shared<const Entry>(std::move(*entry));
    if (known.files == files) return known;
    files = known.files;
  }
  known.fingerprint.clear();
  return known;
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
      const PoolKey& key = (*entry)->key;
      if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(key);
    }
  }
  return keys;
}

}  // namespace quillon::launchpad
