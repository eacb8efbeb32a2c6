#include "quillon/launchpad/server/catalogue.h"

#include <fcntl.h>

#include <algorithm>
#include <exception>

#include "device_paths.h"
#include "quillon/base/files.h"
#include "quillon/host/runtime/framework_check.h"
#include "quillon/host/runtime/runtime_config.h"
#include "quillon/launchpad/server/fingerprint.h"
#include "quillon/resolution/resolution.h"
#include "workstation/packages.h"

namespace quillon::launchpad {
namespace {

namespace fs = std::filesystem;

constexpr size_t kMaxEntries = 1000;

std::vector<std::string> filesOf(const host::LaunchTarget& target,
                                 std::vector<std::string> ofAnswer) {
  ofAnswer.insert(ofAnswer.end(), {target.assembly, host::runtimeConfigOf(target.assembly).string(),
                                   device_paths::kNetcoreapp});
  return ofAnswer;
}

std::string fingerprintOf(const std::vector<std::string>& files) {
  std::string fingerprint = workstation::registryFingerprint() + '\0';
  for (const std::string& file : files) {
    appendFileIdentity(fingerprint, AT_FDCWD, file.c_str());
  }
  return fingerprint;
}

Expected<void> requireAbsolutePath(const Request& request) {
  if (!request.exec || fs::path(*request.exec).is_absolute()) {
    return {};
  }
  return fail("the path '" + *request.exec + "' depends on the working directory");
}

Expected<Entry> lookUp(const Request& request) {
  host::LaunchOptions options;
  options.appId = request.appId;
  options.type = request.type;
  options.exec = request.exec;
  ASSIGN_OR_RETURN(host::LaunchTarget target, host::findTarget(options));
  RETURN_IF_FAILED(host::requireAssembly(target));
  // A worker enters the zone before its package is cached.
  if (host::entersZoneInDebugMode(target)) {
    return fail("its package asks for debug mode, which is decided before the zone is entered");
  }
  ASSIGN_OR_RETURN(auto config, host::readRuntimeConfig(target.assembly));
  const std::string found = host::frameworkVersionOf(device_paths::kNetcoreapp);
  if (!host::serves(found, config.frameworkVersion)) {
    return fail("the application requires another version of the .NET runtime");
  }
  auto answer = resolution::findAnswer({target.assembly, config, found});
  if (!answer) {
    return fail("a direct launch has to ask .NET's host about its dependencies first");
  }
  RETURN_IF_FAILED(resolution::requireFrameworks(answer->additions));
  // The runtime ignores their order.
  std::sort(config.properties.begin(), config.properties.end());
  PoolKey key{target.type, request.raw, std::move(config.properties), std::move(answer->additions)};
  auto files = filesOf(target, std::move(answer->files));
  return Entry{std::move(target), key, key, std::move(files)};
}

// A package's files can make a library throw, for example std::bad_alloc. The server also serves
// other packages, so it must not end.
Expected<Entry> tryLookUp(const Request& request) try {
  return lookUp(request);
} catch (const std::exception& exception) {
  return fail("the launch pad cannot read its files: " + std::string(exception.what()));
}

}  // namespace

Expected<std::shared_ptr<const Entry>> Catalogue::find(const Request& request) {
  RETURN_IF_FAILED(requireAbsolutePath(request));
  const Name name{request.appId, request.type, request.exec, request.raw};
  const auto found = cache_.find(name);
  if (found != cache_.end() && found->second.fingerprint == fingerprintOf(found->second.files)) {
    return found->second.entry;
  }
  std::vector<std::string> files;
  if (found != cache_.end()) {
    files = std::move(found->second.files);
    cache_.erase(found);
  }
  ASSIGN_OR_RETURN(Cached cached, read(request, std::move(files)));
  if (cache_.size() >= kMaxEntries) {
    cache_.clear();
  }
  return (cache_[name] = std::move(cached)).entry;
}

// Takes the fingerprint before it reads the files, so that the next request detects a change during
// the reading. The files are known only after a first reading, so this may read twice.
//
// files  of an earlier result
Expected<Catalogue::Cached> Catalogue::read(const Request& request,
                                            std::vector<std::string> files) {
  Cached cached;
  for (int attempt = 0; attempt < 2; ++attempt) {
    cached.fingerprint = fingerprintOf(files);
    ASSIGN_OR_RETURN(Entry entry, tryLookUp(request));
    cached.files = entry.files;
    const bool isKnown = cached.files == files;
    if (isKnown) {
      const host::LaunchTarget& target = entry.target;
      entry.ownKey.application = {target.application.id, target.package.rootPath, target.assembly,
                                  cached.fingerprint};
    }
    cached.entry = std::make_shared<const Entry>(std::move(entry));
    if (isKnown) {
      return cached;
    }
    files = cached.files;
  }
  cached.fingerprint.clear();
  return cached;
}

bool Catalogue::isCurrent(const PoolKey& ownKey) const {
  return std::any_of(cache_.begin(), cache_.end(), [&](const auto& named) {
    const Cached& cached = named.second;
    return cached.entry->ownKey == ownKey && cached.fingerprint == fingerprintOf(cached.files);
  });
}

std::vector<PoolKey> Catalogue::keysOfInstalled(const std::vector<std::string>& types) {
  std::vector<PoolKey> keys;
  const auto packages = workstation::listPackages();
  if (!packages) {
    return keys;
  }
  for (const workstation::Package& package : *packages) {
    for (const workstation::Application& application : package.applications) {
      Request request;
      request.appId = application.id;
      const auto entry = find(request);
      const bool isWanted =
          types.empty() || std::find(types.begin(), types.end(), application.type) != types.end();
      if (!entry || !isWanted) {
        continue;
      }
      const PoolKey& key = (*entry)->key;
      if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
        keys.push_back(key);
      }
    }
  }
  return keys;
}

}  // namespace quillon::launchpad
