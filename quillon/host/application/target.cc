#include "quillon/host/application/target.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string_view>

#include "device_names.h"
#include "device_paths.h"
#include "quillon/base/shell_word.h"
#include "quillon/host/assemblies/assembly_image.h"
#include "quillon/host/assemblies/path_list.h"
#include "workstation/inside_device.h"

namespace quillon::host {
namespace {

namespace fs = std::filesystem;

// The folders of device_paths::kExecutablePrefixes.
constexpr char kAllowedText[] = "/usr/, /opt/usr/ or /opt/share/";

bool hasPrivilege(const workstation::Package& package, const char* privilege) {
  return std::find(package.privileges.begin(), package.privileges.end(), privilege) !=
         package.privileges.end();
}

bool isAllowed(const std::string& path) {
  return std::any_of(std::begin(device_paths::kExecutablePrefixes),
                     std::end(device_paths::kExecutablePrefixes),
                     [&](std::string_view prefix) { return path.rfind(prefix, 0) == 0; });
}

Failure missingAssembly(const LaunchTarget& target) {
  return {"the assembly '" + target.assembly + "' of application '" + target.application.id +
              "' does not exist in the device root",
          "build and install package '" + target.package.id + "' again, or name it: --path"};
}

Failure missingPrivilege(const LaunchTarget& target) {
  return {"package '" + target.package.id + "' does not have the platform privilege",
          std::string("add \"") + QUILLON_PLATFORM_PRIVILEGE +
              "\" to the privileges of its manifest and install it again"};
}

std::string allowedPathRemedy() {
  return std::string("keep the executable, links resolved, below ") + kAllowedText;
}

Expected<void> requireNoSeparator(const std::string& path) {
  if (!containsSeparator(path)) {
    return {};
  }
  return fail(kUnusablePath,
              {"the path '" + path + "' holds ':', which joins the runtime's lists", "rename it"});
}

Expected<LaunchTarget> installedTarget(const std::string& appId) {
  auto package = workstation::findPackageOfApplication(appId);
  if (!package) {
    return fail(kServiceFailed, package.error());
  }
  if (!*package) {
    return fail(kNotInstalled,
                {"no application '" + appId + "' is installed in this device root",
                 "see quillon package list, or install it: quillon package install MANIFEST.toml"});
  }
  LaunchTarget target;
  target.package = std::move(**package);
  for (const workstation::Application& application : target.package.applications) {
    if (application.id == appId) {
      target.application = application;
    }
  }
  return target;
}

}  // namespace

std::vector<std::string> LaunchTarget::folders() const {
  const fs::path root = package.rootPath;
  return {fs::path(assembly).parent_path().string(), (root / "bin").string(),
          (root / "lib").string()};
}

Expected<LaunchTarget> findTarget(const LaunchOptions& options) {
  ASSIGN_OR_RETURN(LaunchTarget target, installedTarget(options.appId));
  target.type = options.type.value_or(target.application.type);
  target.exec = options.exec.value_or(target.application.exec);
  std::error_code ignored;
  target.assembly = fs::absolute(target.exec, ignored).lexically_normal().string();
  for (const std::string& path : {target.assembly, target.package.rootPath}) {
    RETURN_IF_FAILED(requireNoSeparator(path));
  }
  return target;
}

Expected<void> requireAssembly(const LaunchTarget& target) {
  std::error_code ignored;
  if (!fs::is_regular_file(target.assembly, ignored)) {
    return fail(kNoAssembly, missingAssembly(target));
  }
  if (auto usable = requireExecutableAssembly(target.assembly); !usable) {
    return fail(kNotExecutable, usable.error());
  }
  return {};
}

std::vector<Failure> predictRefusals(const LaunchTarget& target) {
  std::vector<Failure> refusals;
  if (auto found = requireAssembly(target); !found) {
    refusals.push_back(found.error());
  }
  if (!entersZone(target.type) && !hasPrivilege(target.package, QUILLON_PLATFORM_PRIVILEGE)) {
    refusals.push_back(withStatus(kPrivilegeMissing, missingPrivilege(target)));
  }
  std::error_code error;
  const std::string real = fs::canonical(target.assembly, error).string();
  if (!error && !isAllowed(real)) {
    refusals.push_back(
        {"the plug-in refuses the path '" + real + "'", allowedPathRemedy(), kPathRefused});
  }
  return refusals;
}

// Applications of this type need the security zone instead of the platform privilege.
bool entersZone(const std::string& type) {
  return type.find(device_names::kInhouseType) == std::string::npos &&
         type.find(device_names::kDotnetType) != std::string::npos;
}

bool entersZoneInDebugMode(const LaunchTarget& target) {
  return entersZone(target.type) && hasPrivilege(target.package, QUILLON_APPDEBUG_PRIVILEGE);
}

std::vector<std::string> requiredDpcPackages(const workstation::Application& application) {
  const auto entry =
      std::find_if(application.metadata.begin(), application.metadata.end(), [](const auto& pair) {
        return pair.first.find(QUILLON_REQUIRED_PACKAGES_KEY) != std::string::npos;
      });
  if (entry == application.metadata.end()) {
    return {};
  }
  return splitList(entry->second, device_names::kRequiredPackagesSeparator);
}

std::string remedyForRefusal(const std::string& message, const LaunchTarget& target) {
  const auto contains = [&](const char* text) { return message.find(text) != std::string::npos; };
  if (contains("platform privilege")) {
    return missingPrivilege(target).remedy;
  }
  if (contains("Not allowed App Path")) {
    return allowedPathRemedy();
  }
  if (contains("wrong execPath")) {
    return "the file '" + target.exec + "' does not exist: name another with --path";
  }
  if (contains("Not in app zone") || contains("Zone Context is NULL")) {
    return "the zone of the device root does not run; start it: quillon zone start appzone "
           "--device " +
           shellWord(workstation::pathOfDevice());
  }
  return {};
}

}  // namespace quillon::host
