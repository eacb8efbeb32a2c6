#include "quillon/cli/cache_command.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "quillon/cli/command.h"
#include "quillon/cli/device_option.h"
#include "quillon/cli/json_output.h"
#include "quillon/device/cached_lists.h"
#include "quillon/prefetch/profile_files.h"
#include "quillon/prefetch/read_ahead.h"

namespace quillon::cli {
namespace {

using device::CachedList;
using device::CachedLists;
using device::CacheState;

struct CacheRequest {
  std::filesystem::path device;
  bool json = false;
};

std::ptrdiff_t entriesOf(const CachedList& cached) {
  const std::string& list = cached.list;
  const auto separators = std::count(list.begin(), list.end(), ':');
  // The list of shared folders has a separator before each entry, the other one between them.
  return list.empty() || list.front() == ':' ? separators : separators + 1;
}

const char* nameOf(CacheState state) {
  switch (state) {
    case CacheState::kAbsent:
      return "absent";
    case CacheState::kTorn:
      return "torn";
    default:
      return "whole";
  }
}

void printText(const CachedList& cached, const char* entries) {
  std::cout << cached.file << ": ";
  if (cached.state != CacheState::kWhole) {
    std::cout << nameOf(cached.state) << "; the next launch makes it\n";
    return;
  }
  std::cout << entriesOf(cached) << ' ' << entries << ", "
            << (cached.outdated.empty()
                    ? "current"
                    : "outdated: " + cached.outdated + "; remove it: quillon cache clear")
            << '\n';
}

Json toJson(const CachedList& cached) {
  return {{"file", cached.file},
          {"state", nameOf(cached.state)},
          {"entries", entriesOf(cached)},
          {"outdated", cached.outdated.empty() ? Json() : Json(cached.outdated)}};
}

// What `cache show` prints of a launch profile.
struct ShownProfile {
  std::string file;
  std::optional<prefetch::LaunchProfile> profile;
  std::string outdated;
};

std::vector<ShownProfile> shownProfiles() {
  std::vector<ShownProfile> all;
  for (const std::string& appId : prefetch::profiledApplications()) {
    ShownProfile one{prefetch::profileFolder() + '/' + appId, prefetch::readProfile(appId), {}};
    if (one.profile && prefetch::stateOf(*one.profile) == prefetch::ProfileState::kOutdated) {
      one.outdated = "the application or the runtime has changed since";
    }
    all.push_back(std::move(one));
  }
  return all;
}

void printText(const ShownProfile& shown) {
  std::cout << shown.file << ": ";
  if (!shown.profile) {
    std::cout << nameOf(CacheState::kTorn) << "; the next direct launch makes it\n";
    return;
  }
  std::cout << shown.profile->files.size() << " files, "
            << (shown.outdated.empty()
                    ? "current"
                    : "outdated: " + shown.outdated + "; the next direct launch renews it")
            << '\n';
}

Json toJson(const ShownProfile& shown) {
  return {{"file", shown.file},
          {"state", nameOf(shown.profile ? CacheState::kWhole : CacheState::kTorn)},
          {"entries", shown.profile ? shown.profile->files.size() : 0},
          {"outdated", shown.outdated.empty() ? Json() : Json(shown.outdated)}};
}

void runShow(const CacheRequest& request) {
  enterDevice(request.device);
  const CachedLists lists = device::readCachedLists();
  const std::vector<ShownProfile> profiles = shownProfiles();
  if (request.json) {
    Json all = Json::array({toJson(lists.trusted), toJson(lists.shared)});
    std::transform(profiles.begin(), profiles.end(), std::back_inserter(all),
                   [](const ShownProfile& shown) { return toJson(shown); });
    return printJson(all);
  }
  printText(lists.trusted, "assemblies");
  printText(lists.shared, "folders");
  for (const ShownProfile& shown : profiles) {
    printText(shown);
  }
}

void runClear(const CacheRequest& request) {
  enterDevice(request.device);
  valueOf(device::removeCachedLists("/"));
  valueOf(prefetch::removeProfiles("/"));
}

}  // namespace

void addCacheCommand(CLI::App& app) {
  CLI::App* const cache = app.add_subcommand(
      "cache", "Show or clear what is kept for launches: lists and launch profiles");
  cache->require_subcommand(1);
  const auto request = std::make_shared<CacheRequest>();

  CLI::App* action =
      cache->add_subcommand("show", "Print the state of the cached lists and the launch profiles");
  addDeviceOption(*action, request->device);
  action->add_flag(kJsonFlag, request->json, kJsonHelp);
  action->callback([request] { runShow(*request); });

  action = cache->add_subcommand("clear", "Remove all; the next launch makes them again");
  addDeviceOption(*action, request->device);
  action->callback([request] { runClear(*request); });
}

}  // namespace quillon::cli
