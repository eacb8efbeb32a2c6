#include "quillon/cli/zone_command.h"

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "quillon/base/files.h"
#include "quillon/base/report.h"
#include "quillon/cli/command.h"
#include "quillon/cli/device_option.h"
#include "quillon/cli/json_output.h"
#include "quillon/zone/zones.h"

namespace quillon::cli {
namespace {

namespace fs = std::filesystem;

struct ZoneRequest {
  std::string name;
  fs::path device;
  std::vector<fs::path> visible;
  bool json = false;
};

// Launches in the zone need the same machine paths as outside: their working directory, and the
// folder of this program and the plug-in.
std::vector<fs::path> visiblePaths(const ZoneRequest& request) {
  std::error_code error;
  std::vector<fs::path> paths = request.visible;
  paths.push_back(fs::current_path(error));
  paths.push_back(executablePath().parent_path().parent_path());
  return paths;
}

void runStart(const ZoneRequest& request) {
  const pid_t holder = valueOf(zone::start(request.device, request.name, visiblePaths(request)));
  std::cout << "zone " << request.name << ": runs, held by process " << holder << '\n';
}

void runStop(const ZoneRequest& request) {
  const auto stopped = valueOf(zone::stop(request.device, request.name));
  std::cout << "zone " << request.name << ": "
            << (stopped == zone::Stopped::kRunning ? "stopped"
                                                   : "had ended already; removed its files")
            << '\n';
}

std::string describe(const zone::Zone& zone) {
  if (zone.holder < 0) {
    return "not running; its holder ended without being stopped";
  }
  std::string text = "runs, held by process " + std::to_string(zone.holder) + "; inside:";
  for (const pid_t process : zone.processes) {
    text += " " + std::to_string(process);
  }
  return zone.processes.empty() ? text + " none" : text;
}

Json toJson(const zone::Zone& zone) {
  return {{"name", zone.name},
          {"holder", zone.holder < 0 ? Json() : Json(zone.holder)},
          {"processes", zone.processes}};
}

void runList(const ZoneRequest& request) {
  if (request.json) {
    Json zones = Json::array();
    for (const zone::Zone& zone : valueOf(zone::list(request.device))) {
      zones.push_back(toJson(zone));
    }
    return printJson(zones);
  }
  for (const zone::Zone& zone : valueOf(zone::list(request.device))) {
    std::cout << "zone " << zone.name << ": " << describe(zone) << '\n';
  }
}

CLI::App* addAction(CLI::App& zone, const std::shared_ptr<ZoneRequest>& request, const char* name,
                    const char* help, void (*run)(const ZoneRequest&)) {
  CLI::App* action = zone.add_subcommand(name, help);
  addDeviceOption(*action, request->device);
  action->callback([request, run] { run(*request); });
  return action;
}

void addName(CLI::App& action, const std::shared_ptr<ZoneRequest>& request) {
  action.add_option("ZONE", request->name, "Name of the zone; applications enter appzone")
      ->required();
}

}  // namespace

void addZoneCommand(CLI::App& app) {
  auto request = std::make_shared<ZoneRequest>();
  CLI::App* zone = app.add_subcommand("zone", "Start, stop and list security zones");
  zone->require_subcommand(1);
  CLI::App* start = addAction(*zone, request, "start", "Start a zone", runStart);
  addName(*start, request);
  start->add_option("--visible", request->visible, "Machine path that stays visible")
      ->type_name("PATH")
      ->allow_extra_args(false);
  addName(*addAction(*zone, request, "stop", "Stop a zone", runStop), request);
  addAction(*zone, request, "list", "List the zones", runList)
      ->add_flag(kJsonFlag, request->json, kJsonHelp);
}

}  // namespace quillon::cli
