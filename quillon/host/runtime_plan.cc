#include "quillon/host/runtime_plan.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "device_paths.h"
#include "quillon/host/runtime/runtime_config.h"

namespace quillon::host {
namespace {

namespace fs = std::filesystem;

#if defined(__x86_64__)
constexpr char kRuntimeIdentifier[] = "linux-x64";
#elif defined(__aarch64__)
constexpr char kRuntimeIdentifier[] = "linux-arm64";
#elif defined(__arm__)
constexpr char kRuntimeIdentifier[] = "linux-arm";
#else
#error "name this processor's runtime identifier"
#endif

// The trusted assemblies if the plug-in returns no list: the framework's, and the one that
// plugin_preload() looks for.
std::vector<std::string> frameworkAssemblies() {
  std::vector<std::string> paths;
  std::error_code error;
  for (fs::directory_iterator entry(device_paths::kNetcoreapp, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string path = entry->path().string();
    if (!simpleNameOf(path).empty()) {
      paths.push_back(path);
    }
  }
  std::sort(paths.begin(), paths.end());
  if (fs::exists(device_paths::kPreload, error)) {
    paths.emplace_back(device_paths::kPreload);
  }
  return paths;
}

bool isPlaceholder(const std::string& path) {
  return path.rfind(device_paths::kPlaceholderPrefix, 0) == 0;
}

bool canOpen(const std::string& directory) {
  std::error_code ignored;
  return fs::is_directory(directory, ignored) && access(directory.c_str(), R_OK) == 0;
}

// Assigns the placeholders, in order, to the directories that can be opened.
std::vector<RequiredDpc> assignPlaceholders(const workstation::Application& application,
                                            const std::vector<std::string>& placeholders) {
  std::vector<RequiredDpc> required;
  auto next = placeholders.begin();
  for (const std::string& package : requiredDpcPackages(application)) {
    RequiredDpc dpc{
        package, device_paths::kApplications + package + device_paths::kDpcOfPackage, {}};
    if (next != placeholders.end() && canOpen(dpc.directory)) {
      dpc.placeholder = *next++;
    }
    required.push_back(std::move(dpc));
  }
  return required;
}

// application  the application's own folders
void planFolders(RuntimePlan& plan, const std::vector<std::string>& application,
                 const PluginLists& lists) {
  plan.appPaths.addAll(application);
  plan.appPaths.addAll(splitList(lists.dllPath));
  plan.appPaths.addAll(splitList(lists.extraPath));
  for (const std::string& folder : plan.appPaths.entries()) {
    if (isPlaceholder(folder)) {
      plan.placeholders.push_back(folder);
    }
  }
  plan.nativePaths.addAll(splitList(lists.nativePath));
  plan.nativePaths.addAll(application);
  plan.nativePaths.add(device_paths::kNetcoreapp);
}

// The runtime searches culture folders beside the trusted assemblies for their satellite
// assemblies. It finds those of other assemblies through APP_PATHS.
void planResourceRoots(RuntimePlan& plan) {
  for (const std::string& path : plan.assemblies.trusted()) {
    plan.resourceRoots.add(path.substr(0, path.rfind('/')));
  }
}

void addIfFile(std::vector<std::string>& files, const fs::path& file) {
  std::error_code ignored;
  if (fs::exists(file, ignored)) {
    files.push_back(file.string());
  }
}

// The dependency files, which applications read through Microsoft.Extensions.DependencyModel.
std::string dependencyFiles(const std::string& assembly, const std::string& frameworkFile) {
  std::vector<std::string> files;
  addIfFile(files, fs::path(assembly).replace_extension(".deps.json"));
  addIfFile(files, frameworkFile);
  return joinList(files, ';');
}

// .NET's own host passes this variable to the runtime as a property.
void addStartupHooks(RuntimeProperties& properties) {
  const char* const hooks = std::getenv("DOTNET_STARTUP_HOOKS");
  if (hooks != nullptr && *hooks != '\0') {
    properties.emplace_back("STARTUP_HOOKS", hooks);
  }
}

std::string frameworkDependencies() {
  return std::string(device_paths::kNetcoreapp) + "/Microsoft.NETCore.App.deps.json";
}

void setProperties(RuntimePlan& plan) {
  plan.properties = {
      {"TRUSTED_PLATFORM_ASSEMBLIES", joinList(plan.assemblies.trusted())},
      {"APP_PATHS", joinList(plan.appPaths.entries())},
      {"NATIVE_DLL_SEARCH_DIRECTORIES", joinList(plan.nativePaths.entries())},
      {"PLATFORM_RESOURCE_ROOTS", joinList(plan.resourceRoots.entries())},
      {"FX_DEPS_FILE", frameworkDependencies()},
      {"RUNTIME_IDENTIFIER", kRuntimeIdentifier},
  };
  addStartupHooks(plan.properties);
}

RuntimeProperties propertiesOfAssembly(const LaunchTarget& target) {
  const std::string base = fs::path(target.assembly).parent_path().string();
  return {
      {"APP_CONTEXT_BASE_DIRECTORY", base == "/" ? base : base + "/"},
      {"APP_CONTEXT_DEPS_FILES", dependencyFiles(target.assembly, frameworkDependencies())},
  };
}

// Adds the application's own settings. They cannot replace the properties that the launch needs.
void addConfigured(RuntimeProperties& properties, const RuntimeProperties& configured) {
  for (const auto& setting : configured) {
    const bool isSet = std::any_of(properties.begin(), properties.end(),
                                   [&](const auto& known) { return known.first == setting.first; });
    if (!isSet) {
      properties.push_back(setting);
    }
  }
}

// The directory that a folder of APP_PATHS will refer to; empty for an unused placeholder.
std::string directoryBehind(const RuntimePlan& plan, const std::string& folder) {
  if (!isPlaceholder(folder)) {
    return folder;
  }
  for (const RequiredDpc& dpc : plan.requiredDpc) {
    if (dpc.placeholder == folder) {
      return dpc.directory;
    }
  }
  return {};
}

}  // namespace

Expected<RuntimePlan> planRuntime(const LaunchTarget& target, const PluginLists& lists) {
  ASSIGN_OR_RETURN(const RuntimeConfig config, readRuntimeConfig(target.assembly));
  RuntimePlan plan;
  plan.frameworkVersion = frameworkVersionOf(device_paths::kNetcoreapp);
  plan.wantedVersion = config.frameworkVersion;
  plan.assemblies.addTrusted(lists.tpa ? splitList(*lists.tpa) : frameworkAssemblies());
  planFolders(plan, target.folders(), lists);
  planResourceRoots(plan);
  plan.requiredDpc = assignPlaceholders(target.application, plan.placeholders);
  setProperties(plan);
  for (auto& property : propertiesOfAssembly(target)) {
    plan.properties.push_back(std::move(property));
  }
  addConfigured(plan.properties, config.properties);
  return plan;
}

RuntimePlan planPrepared(const std::vector<std::string>& folders, const PluginLists& lists,
                         const RuntimeProperties& configured, const std::string& assembly) {
  RuntimePlan plan;
  plan.assemblies.addTrusted(lists.tpa ? splitList(*lists.tpa) : frameworkAssemblies());
  plan.assemblies.addTrusted({assembly});
  planFolders(plan, folders, lists);
  planResourceRoots(plan);
  setProperties(plan);
  addConfigured(plan.properties, configured);
  return plan;
}

RuntimeProperties propertiesOfApplication(const LaunchTarget& target, const PluginLists& lists) {
  RuntimePlan folders;
  planFolders(folders, target.folders(), lists);
  RuntimeProperties properties = propertiesOfAssembly(target);
  properties.emplace_back("APP_PATHS", joinList(folders.appPaths.entries()));
  properties.emplace_back("NATIVE_DLL_SEARCH_DIRECTORIES", joinList(folders.nativePaths.entries()));
  return properties;
}

void findShadowsInFolders(RuntimePlan& plan) {
  for (const std::string& folder : plan.appPaths.entries()) {
    const std::string directory = directoryBehind(plan, folder);
    if (!directory.empty()) {
      plan.assemblies.addFolder(directory, directory);
    }
  }
}

}  // namespace quillon::host
