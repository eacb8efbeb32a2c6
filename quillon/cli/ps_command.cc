#include "quillon/cli/ps_command.h"

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <memory>

#include "quillon/cli/command.h"
#include "quillon/cli/device_option.h"
#include "quillon/cli/json_output.h"
#include "quillon/cli/running_applications.h"

namespace quillon::cli {
namespace {

struct PsRequest {
  std::filesystem::path device;
  bool json = false;
};

struct StopRequest {
  std::filesystem::path device;
  std::string id;
  double grace = 5;
};

void listAsText(const std::vector<RunningApplication>& running) {
  constexpr int kPidWidth = 7;
  for (const RunningApplication& application : running) {
    std::cout << std::setw(kPidWidth) << application.process << "  " << oneLine(application.id)
              << (application.id.empty() ? "package " : " of ") << oneLine(application.package)
              << '\n';
  }
}

void list(const PsRequest& request) {
  const auto running = valueOf(runningApplications(request.device));
  if (!request.json) {
    return listAsText(running);
  }
  Json all = Json::array();
  for (const RunningApplication& application : running) {
    all.push_back({{"pid", application.process},
                   {"application", application.id},
                   {"package", application.package}});
  }
  printJson(all);
}

// Returns false with errno on failure.
bool send(const RunningApplication& application, int signal) {
  return syscall(SYS_pidfd_send_signal, application.pidfd.get(), signal, nullptr, 0) == 0 ||
         errno == ESRCH;
}

bool ends(const RunningApplication& application, int milliseconds) {
  pollfd ended{application.pidfd.get(), POLLIN, 0};
  return poll(&ended, 1, milliseconds) == 1;
}

Expected<void> stop(const RunningApplication& application, double grace) {
  constexpr int kKillTimeoutMs = 5000;
  const std::string process = "process " + std::to_string(application.process);
  if (!send(application, SIGTERM)) {
    return fail("cannot end " + process + ": " + std::strerror(errno), "run this as its user");
  }
  if (ends(application, static_cast<int>(grace * 1000))) {
    std::cout << "stopped " << application.id << ", " << process << '\n';
    return {};
  }
  if (!send(application, SIGKILL) || !ends(application, kKillTimeoutMs)) {
    return fail(process + " does not end", "see what it waits for: cat /proc/PID/stack");
  }
  std::cout << "killed " << application.id << ", " << process << '\n';
  return {};
}

void stopAll(const StopRequest& request) {
  bool isFound = false;
  for (const RunningApplication& application : valueOf(runningApplications(request.device))) {
    if (application.id == request.id) {
      isFound = true;
      valueOf(stop(application, request.grace));
    }
  }
  if (!isFound) {
    endCommand(report({"application '" + request.id + "' does not run",
                       "list what runs: quillon ps", kNotInstalled}));
  }
}

}  // namespace

void addPsCommand(CLI::App& app) {
  const auto request = std::make_shared<PsRequest>();
  CLI::App* const command = app.add_subcommand("ps", "List the running applications");
  addDeviceOption(*command, request->device);
  command->add_flag(kJsonFlag, request->json, kJsonHelp);
  command->callback([request] { list(*request); });
}

void addStopCommand(CLI::App& app) {
  constexpr double kMaxGrace = 3600;
  const auto request = std::make_shared<StopRequest>();
  CLI::App* const command = app.add_subcommand("stop", "End a running application");
  addDeviceOption(*command, request->device);
  command->add_option("APPID", request->id, "Application id")->required();
  command->add_option("--grace", request->grace, "Seconds from SIGTERM to SIGKILL")
      ->check(CLI::Range(0.0, kMaxGrace))
      ->capture_default_str();
  command->callback([request] { stopAll(*request); });
}

}  // namespace quillon::cli
