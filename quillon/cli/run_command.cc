#include "quillon/cli/run_command.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "quillon/base/process.h"
#include "quillon/base/terminal.h"
#include "quillon/cli/build_folder.h"
#include "quillon/cli/command.h"
#include "quillon/cli/device_option.h"
#include "quillon/cli/new_device.h"
#include "quillon/cli/new_manifest.h"
#include "quillon/cli/package_change.h"
#include "quillon/cli/run_launch.h"
#include "quillon/cli/running_applications.h"
#include "quillon/device/device_root.h"
#include "quillon/device/layout.h"
#include "quillon/device/record.h"
#include "quillon/device/view.h"
#include "quillon/host/launch.h"
#include "quillon/launchpad/client/client.h"

namespace quillon::cli {
namespace {

namespace fs = std::filesystem;

struct RunRequest {
  fs::path device;
  fs::path assembly;
  std::vector<fs::path> writable;
  bool direct = false;
};

int installAndRemove(const fs::path& device, const workstation::ManifestText& manifest,
                     const std::vector<std::string>& obsolete) {
  const auto installed = installInto(device, manifest, 0, Warnings::kOmit);
  if (!installed) {
    return report(installed.error());
  }
  for (const std::string& id : obsolete) {
    if (const auto removed = removePackage(id, 0); !removed) {
      report(removed.error());
    }
  }
  return kSuccess;
}

// Changes the packages in a child process, since this one must stay outside of the device root: the
// launch pad compares the mount namespaces of its clients with its own.
int changeInChild(const fs::path& device, const workstation::ManifestText& manifest,
                  const std::vector<std::string>& obsolete) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(installAndRemove(device, manifest, obsolete));
  }
  const int status = child > 0 ? waitForEnd(child) : -1;
  return child > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : static_cast<int>(kServiceFailed);
}

// The packages of deleted builds of which no application runs: it may still need its files.
std::vector<std::string> obsoletePackages(const fs::path& device) {
  std::vector<std::string> ids = deletedBuilds(device);
  if (ids.empty()) {
    return ids;
  }
  const auto running = runningApplications(device);
  if (!running) {
    return {};
  }
  std::erase_if(ids, [&](const std::string& id) {
    return std::any_of(running->begin(), running->end(),
                       [&](const RunningApplication& one) { return one.package == id; });
  });
  return ids;
}

// Installs the build unless the device root has it as it is. Then also removes the packages of
// builds whose folders were deleted.
void install(const fs::path& device, const BuildFolder& build) {
  if (isInstalled(device, build)) {
    return;
  }
  valueOf(withStatus(kNoDeviceRoot, device::readRecord(device)));
  valueOf(requireLaunchable(build));
  for (const fs::path& link : linksOutOf(build)) {
    report({"warning: the application will not find '" + link.string() +
                "', a relative link out of the folder that is installed",
            "put a copy of its target there"});
  }
  NewPackage package = packageOfAssembly(build.assembly);
  package.id = build.id;
  const std::vector<std::string> obsolete = obsoletePackages(device);
  const int status = changeInChild(device, newManifest(build.folder, package), obsolete);
  if (status != 0) {
    endCommand(status);
  }
  noteInstalled(device, build);
  for (const std::string& id : obsolete) {
    forgetInstalled(device, id);
  }
}

// The working directory, if it can be shown to the application.
std::vector<fs::path> workingDirectory() {
  std::error_code error;
  const fs::path directory = fs::current_path(error);
  if (error || device::holdsDeviceDirectory(directory.relative_path().string())) {
    return {};
  }
  return {directory};
}

// Launches in this process. A process of a launch pad has its mounts already.
int launchHere(const host::LaunchOptions& options) {
  host::LaunchOptions writable = options;
  for (fs::path& directory : workingDirectory()) {
    writable.writable.push_back(std::move(directory));
  }
  return host::launch(writable);
}

// Whether the launch pad's applications would find the working directory read-only. Says so to a
// person at a terminal.
bool needsOwnMounts(const fs::path& device) {
  if (!launchpad::hasWorkingDirectoryReadOnly(device)) {
    return false;
  }
  if (isatty(STDERR_FILENO) != 0) {
    tell({"launched directly, not by the launch pad, in which the working directory is read-only",
          "start the launch pad with --writable and this folder"});
  }
  return true;
}

void run(const RunRequest& request) {
  const BuildFolder build = valueOf(examineBuild(request.assembly));
  host::LaunchOptions options;
  options.device = request.device;
  valueOf(makeDeviceOfUser(options.device));
  install(options.device, build);
  options.appId = build.id;
  options.raw = true;
  options.planIfMissing = false;
  options.direct = request.direct || needsOwnMounts(options.device);
  options.writable = request.writable;
  options.arguments = programArguments();
  endCommand(runLaunch(options, launchHere));
}

}  // namespace

void addRunCommand(CLI::App& app) {
  CLI::App* const command = app.add_subcommand(kRunCommand, "Run an assembly as dotnet does");
  const auto request = std::make_shared<RunRequest>();
  command->add_option("APP.dll", request->assembly, "Assembly that dotnet build or publish wrote")
      ->required();
  addDeviceOption(*command, request->device);
  command->add_option("--writable", request->writable, "Path that stays writable")
      ->type_name("PATH")
      ->allow_extra_args(false);
  command->add_flag("--direct", request->direct, "Do not use a launch pad");
  command->footer(
      "Installs the assembly's folder as a package if its files have changed, and\n"
      "launches it with the standard streams as they are. All arguments after APP.dll\n"
      "are the application's. The exit status is that of the application.\n"
      "\n"
      "The working directory stays writable. A launch pad serves the launch if it was\n"
      "started with --writable for that folder.");
  command->callback([request] { run(*request); });
}

}  // namespace quillon::cli
