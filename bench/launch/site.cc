#include "bench/launch/site.h"

#include <utility>

namespace quillon::bench {
namespace {

std::vector<std::string> optionsOf(const Setup& setup) {
  std::vector<std::string> options = {"--type", "none"};
  if (setup.workers == Workers::kGeneric && hasOwnWorkers(setup.build)) {
    options.insert(options.end(), {kMemoryOption, "0"});
  }
  return options;
}

Service serviceOf(const Setup& setup, std::vector<std::string> environment) {
  Service service = launchPadFor(setup.quillon(), setup.device, optionsOf(setup));
  service.environment = std::move(environment);
  return service;
}

}  // namespace

Site::Site(Setup setup, const std::vector<Contender>& contenders,
           std::chrono::duration<double> wait, std::vector<std::string> environment)
    : setup_(std::move(setup)),
      place_(contenders, setup_.device, {setup_.work, setup_.build, setup_.ownBuild},
             serviceOf(setup_, std::move(environment))),
      launchPad_(place_, setup_, wait) {}

}  // namespace quillon::bench
