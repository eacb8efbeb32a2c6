#include "quillon/cli/package_command.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "quillon/base/files.h"
#include "quillon/base/report.h"
#include "quillon/base/shell_word.h"
#include "quillon/cli/command.h"
#include "quillon/cli/device_option.h"
#include "quillon/cli/json_output.h"
#include "quillon/cli/new_manifest.h"
#include "quillon/cli/package_change.h"
#include "workstation/packages.h"

namespace quillon::cli {
namespace {

namespace fs = std::filesystem;
using workstation::Application;
using workstation::Package;

struct PackageRequest {
  fs::path device;
  fs::path manifest;
  fs::path folder;
  std::string exec;
  std::string id;
  uid_t user = 0;
  bool json = false;
};

// The ids of the processes that run files of a package, each after a blank.
std::string runningProcesses(const std::string& package) {
  std::string processes;
  for (const pid_t process : workstation::processesOfPackage(package)) {
    processes += " " + std::to_string(process);
  }
  return processes;
}

// "in the process 7", "in the processes 7 8"
std::string inProcesses(const std::string& processes) {
  const bool areSeveral = processes.find(' ', 1) != processes.npos;
  return std::string("in the ") + (areSeveral ? "processes" : "process") + processes;
}

void reportReplaced(const std::string& package) {
  if (const std::string processes = runningProcesses(package); !processes.empty()) {
    report({"'" + package + "' still runs, with its former files, " + inProcesses(processes),
            "files that it has not opened yet are missing or new to it: start it again"});
  }
}

void reportRemoved(const std::string& package) {
  if (const std::string processes = runningProcesses(package); !processes.empty()) {
    report({"'" + package + "' still runs, without its files, " + inProcesses(processes),
            "end it: kill" + processes});
  }
}

void install(const PackageRequest& request) {
  const auto manifest = valueOf(manifestAt(request.manifest));
  const Package package = valueOf(installInto(request.device, manifest, request.user));
  std::cout << "installed " << package.id << ' ' << package.version << " to " << package.rootPath
            << '\n';
  reportReplaced(package.id);
}

// Names the users that the package is installed for, if it is for others than the given one.
Failure notInstalled(const PackageRequest& request, const std::vector<Package>& packages) {
  for (const Package& package : packages) {
    if (package.id == request.id && package.owner != request.user) {
      return {"package '" + request.id + "' is installed for another user",
              "name the user: --user " + std::to_string(package.owner), kNotInstalled};
    }
  }
  return {"no package '" + request.id + "' is installed",
          "list the installed packages: quillon package list", kNotInstalled};
}

void remove(const PackageRequest& request) {
  enterDevice(request.device);
  if (!valueOf(removePackage(request.id, request.user))) {
    endCommand(report(notInstalled(request, valueOf(workstation::listPackages()))));
  }
  std::cout << "removed " << request.id << '\n';
  reportRemoved(request.id);
}

// Writes a manifest to the folder of a build.
void create(const PackageRequest& request) {
  const fs::path folder = fs::absolute(request.folder).lexically_normal();
  const std::string assembly =
      request.exec.empty() ? valueOf(findApplicationAssembly(folder)) : request.exec;
  std::error_code error;
  if (!fs::is_regular_file(folder / assembly, error)) {
    endCommand(report({"there is no file '" + (folder / assembly).string() + "'",
                       "name the application's assembly, relative to the folder", kNoAssembly}));
  }
  NewPackage package = packageOfAssembly(assembly);
  if (!request.id.empty()) {
    package.id = request.id;
  }
  const auto manifest = newManifest(folder, package);
  valueOf(workstation::foldersOfManifest(manifest));  // checks it
  const Descriptor file(open(manifest.file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (!file || !writeAll(file.get(), manifest.text)) {
    const int cause = errno;
    endCommand(report({"cannot write '" + manifest.file + "': " + std::strerror(cause),
                       cause == EEXIST ? "edit it, or remove it first" : "make the folder writable",
                       kServiceFailed}));
  }
  std::cout << "wrote " << manifest.file << "; install it: quillon package install "
            << shellWord(folder.string()) << '\n';
}

Json toJson(const Application& application) {
  Json metadata = Json::array();
  for (const auto& [key, value] : application.metadata) {
    metadata.push_back({{"key", key}, {"value", value}});
  }
  return {{"id", application.id},
          {"exec", application.exec},
          {"type", application.type},
          {"component", application.service ? "service" : "ui"},
          {"metadata", metadata}};
}

Json toJson(const Package& package) {
  Json applications = Json::array();
  for (const Application& application : package.applications) {
    applications.push_back(toJson(application));
  }
  return {
      {"id", package.id},       {"version", package.version},       {"root", package.rootPath},
      {"owner", package.owner}, {"privileges", package.privileges}, {"applications", applications}};
}

Json toJson(const std::vector<Package>& packages) {
  Json all = Json::array();
  for (const Package& package : packages) {
    all.push_back(toJson(package));
  }
  return all;
}

void printText(const std::vector<Package>& packages) {
  if (packages.empty()) {
    std::cout << "no packages are installed\n";
  }
  for (const Package& package : packages) {
    const std::string user =
        package.owner == 0 ? "" : "  (user " + std::to_string(package.owner) + ')';
    std::cout << oneLine(package.id + ' ' + package.version + "  " + package.rootPath + user)
              << '\n';
    for (const Application& application : package.applications) {
      std::cout << oneLine("  " + application.id + "  " + application.type +
                           (application.service ? " service  " : "  ") + application.exec)
                << '\n';
    }
  }
}

void list(const PackageRequest& request) {
  enterDevice(request.device);
  const auto packages = valueOf(workstation::listPackages());
  request.json ? printJson(toJson(packages)) : printText(packages);
}

void printLine(const char* name, const std::string& value) {
  constexpr int kNameWidth = 12;
  std::cout << std::left << std::setw(kNameWidth) << name << oneLine(value) << '\n';
}

void printDetails(const Package& package) {
  printLine("package", package.id);
  printLine("version", package.version);
  printLine("root", package.rootPath);
  printLine("user", package.owner == 0 ? "all" : std::to_string(package.owner));
  for (const std::string& privilege : package.privileges) {
    printLine("privilege", privilege);
  }
  for (const Application& application : package.applications) {
    std::cout << '\n';
    printLine("application", application.id);
    printLine("type", application.type);
    printLine("executable", application.exec);
    printLine("component", application.service ? "service" : "ui");
    for (const auto& [key, value] : application.metadata) {
      printLine("metadata", key + " = " + value);
    }
  }
}

void info(const PackageRequest& request) {
  enterDevice(request.device);
  const auto packages = valueOf(workstation::listPackages());
  const auto found = std::find_if(packages.begin(), packages.end(), [&](const Package& package) {
    return package.id == request.id && package.owner == request.user;
  });
  if (found == packages.end()) {
    endCommand(report(notInstalled(request, packages)));
  }
  request.json ? printJson(toJson(*found)) : printDetails(*found);
}

CLI::App* addAction(CLI::App& package, const std::string& name, const std::string& help,
                    const std::shared_ptr<PackageRequest>& request,
                    void (*run)(const PackageRequest&)) {
  CLI::App* action = package.add_subcommand(name, help);
  addDeviceOption(*action, request->device);
  action->callback([request, run] { run(*request); });
  return action;
}

void addUser(CLI::App& action, const std::shared_ptr<PackageRequest>& request) {
  action
      .add_option("--user", request->user, "Numeric id of the user it is for; default: all users")
      ->type_name("UID");
}

void addNew(CLI::App& package, const std::shared_ptr<PackageRequest>& request) {
  CLI::App* action = package.add_subcommand("new", "Write a manifest for the folder of a build");
  action->add_option("FOLDER", request->folder, "Folder that dotnet publish or build wrote")
      ->required();
  action->add_option("--exec", request->exec, "The application's assembly; default: the only one")
      ->type_name("FILE");
  action->add_option("--id", request->id, "Package id; default: the assembly's name")
      ->type_name("ID");
  action->callback([request] { create(*request); });
}

}  // namespace

void addPackageCommand(CLI::App& app) {
  CLI::App* package = app.add_subcommand("package", "Make, install, remove and list packages");
  package->require_subcommand(1);
  auto request = std::make_shared<PackageRequest>();
  addNew(*package, request);

  CLI::App* action =
      addAction(*package, "install", "Install or replace a package", request, install);
  action->add_option("MANIFEST", request->manifest, "Manifest, or the folder of a build")
      ->required();
  addUser(*action, request);

  action = addAction(*package, "remove", "Remove a package and its files", request, remove);
  action->add_option("PACKAGE", request->id, "Id of an installed package")->required();
  addUser(*action, request);

  action = addAction(*package, "list", "List the packages and their applications", request, list);
  action->add_flag(kJsonFlag, request->json, kJsonHelp);

  action = addAction(*package, "info", "Print what is known of a package", request, info);
  action->add_option("PACKAGE", request->id, "Id of an installed package")->required();
  addUser(*action, request);
  action->add_flag(kJsonFlag, request->json, kJsonHelp);
}

}  // namespace quillon::cli
