#include "quillon/cli/package_command.h"

#include <filesystem>
#include <iostream>
#include <memory>

#include "quillon/base/report.h"
#include "quillon/cli/command.h"
#include "quillon/cli/device_option.h"
#include "quillon/cli/json_output.h"
#include "quillon/cli/package_change.h"
#include "workstation/packages.h"

namespace quillon::cli {
namespace {

namespace fs = std::filesystem;
using workstation::Application;
using workstation::Package;

struct PackageRequest {
  fs::path device;
  std::string manifest;
  std::string id;
  uid_t user = 0;
  bool json = false;
};

void install(const PackageRequest& request) {
  // Read the manifest before entering the device root, which may hide its paths.
  const auto folders = valueOf(workstation::foldersOfManifest(request.manifest));
  const std::string manifest = fs::absolute(request.manifest).string();
  enterDevice(request.device, {folders.begin(), folders.end()});
  const Package package =
      valueOf(changePackages([&] { return workstation::installPackage(manifest, request.user); }));
  std::cout << "installed " << package.id << ' ' << package.version << " to " << package.rootPath
            << '\n';
}

void remove(const PackageRequest& request) {
  enterDevice(request.device);
  if (!valueOf(
          changePackages([&] { return workstation::removePackage(request.id, request.user); }))) {
    endCommand(report({"no package '" + request.id + "' is installed",
                       "list the installed packages: quillon package list", kNotInstalled}));
  }
  std::cout << "removed " << request.id << '\n';
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
    std::cout << package.id << ' ' << package.version << "  " << package.rootPath;
    if (package.owner != 0) {
      std::cout << "  (user " << package.owner << ')';
    }
    std::cout << '\n';
    for (const Application& application : package.applications) {
      std::cout << "  " << application.id << "  " << application.type
                << (application.service ? " service  " : "  ") << application.exec << '\n';
    }
  }
}

void list(const PackageRequest& request) {
  enterDevice(request.device);
  const auto packages = valueOf(workstation::listPackages());
  request.json ? printJson(toJson(packages)) : printText(packages);
}

CLI::App* addAction(CLI::App& package, const std::string& name, const std::string& help,
                    const std::shared_ptr<PackageRequest>& request,
                    void (*run)(const PackageRequest&)) {
  CLI::App* action = package.add_subcommand(name, help);
  addDeviceOption(*action, request->device);
  action->callback([request, run] { run(*request); });
  return action;
}

}  // namespace

void addPackageCommand(CLI::App& app) {
  CLI::App* package = app.add_subcommand("package", "Install, remove and list packages");
  package->require_subcommand(1);
  auto request = std::make_shared<PackageRequest>();
  const char* userHelp = "Numeric id of the user that the package is for; 0: all users";

  CLI::App* action =
      addAction(*package, "install", "Install or replace a package", request, install);
  action->add_option("MANIFEST", request->manifest, "Package manifest, a TOML file")->required();
  action->add_option("--user", request->user, userHelp);

  action = addAction(*package, "remove", "Remove a package and its files", request, remove);
  action->add_option("ID", request->id, "Package id")->required();
  action->add_option("--user", request->user, userHelp);

  action = addAction(*package, "list", "List the packages and their applications", request, list);
  action->add_flag(kJsonFlag, request->json, kJsonHelp);
}

}  // namespace quillon::cli
