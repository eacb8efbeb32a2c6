#include "quillon/cli/cache_command.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include "quillon/cli/command.h"
#include "quillon/cli/device_option.h"
#include "quillon/cli/json_output.h"
#include "quillon/device/cached_lists.h"

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

void runShow(const CacheRequest& request) {
  enterDevice(request.device);
  const CachedLists lists = device::readCachedLists();
  if (request.json) {
    return printJson(Json::array({toJson(lists.trusted), toJson(lists.shared)}));
  }
  printText(lists.trusted, "assemblies");
  printText(lists.shared, "folders");
}

void runClear(const CacheRequest& request) {
  enterDevice(request.device);
  valueOf(device::removeCachedLists("/"));
}

}  // namespace

void addCacheCommand(CLI::App& app) {
  CLI::App* const cache = app.add_subcommand("cache", "Show or clear the lists kept for launches");
  cache->require_subcommand(1);
  const auto request = std::make_shared<CacheRequest>();

  CLI::App* action = cache->add_subcommand("show", "Print the state of the cached lists");
  addDeviceOption(*action, request->device);
  action->add_flag(kJsonFlag, request->json, kJsonHelp);
  action->callback([request] { runShow(*request); });

  action = cache->add_subcommand("clear", "Remove the lists; the next launch makes them again");
  addDeviceOption(*action, request->device);
  action->callback([request] { runClear(*request); });
}

}  // namespace quillon::cli
