#include "quillon/host/runtime_plan.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "device_paths.h"

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

// The trusted assemblies if the plug-in returns no list: those of the framework, and Preload, which
// plugin_preload() loads.
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

// The plug-in's list comes first, so that it decides about a name that both have.
void planTrusted(RuntimePlan& plan, const PluginLists& lists) {
  plan.assemblies.addTrusted(lists.tpa ? splitList(*lists.tpa) : frameworkAssemblies());
  plan.assemblies.addTrusted(plan.additions.assemblies);
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

bool belongsToFramework(const resolution::Additions& additions, const std::string& folder) {
  return std::any_of(additions.frameworks.begin(), additions.frameworks.end(),
                     [&](const auto& framework) { return framework.directory == folder; });
}

// The device's framework comes first: the runtime loads its native libraries while it starts,
// before the plug-in decides about the application, so no file of a package may take their place.
// As in .NET's own host, the application's native folders come before its own folder, and those of
// other frameworks after it.
void planNativeFolders(RuntimePlan& plan, const std::vector<std::string>& application,
                       const resolution::Additions& additions) {
  plan.nativePaths.add(device_paths::kNetcoreapp);
  for (const std::string& folder : additions.nativeFolders) {
    if (!belongsToFramework(additions, folder)) {
      plan.nativePaths.add(folder);
    }
  }
  plan.nativePaths.addAll(application);
  plan.nativePaths.addAll(additions.nativeFolders);
}

// application  the application's own folders
void planFolders(RuntimePlan& plan, const std::vector<std::string>& application,
                 const PluginLists& lists, const resolution::Additions& additions) {
  plan.appPaths.addAll(application);
  plan.appPaths.addAll(splitList(lists.dllPath));
  plan.appPaths.addAll(splitList(lists.extraPath));
  for (const std::string& folder : plan.appPaths.entries()) {
    if (isPlaceholder(folder)) {
      plan.placeholders.push_back(folder);
    }
  }
  plan.nativePaths.addAll(splitList(lists.nativePath));
  planNativeFolders(plan, application, additions);
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

std::string frameworkDependencies() {
  return std::string(device_paths::kNetcoreapp) + "/Microsoft.NETCore.App.deps.json";
}

// The dependency files, which applications read through Microsoft.Extensions.DependencyModel.
std::string dependencyFiles(const std::string& assembly, const resolution::Additions& additions) {
  std::vector<std::string> files;
  addIfFile(files, fs::path(assembly).replace_extension(".deps.json"));
  for (const resolution::SharedFramework& framework : additions.frameworks) {
    addIfFile(files, fs::path(framework.directory) / (framework.name + ".deps.json"));
  }
  addIfFile(files, frameworkDependencies());
  return joinList(files, ';');
}

// .NET's own host passes this variable to the runtime as a property.
void addStartupHooks(RuntimeProperties& properties) {
  const char* const hooks = std::getenv("DOTNET_STARTUP_HOOKS");
  if (hooks != nullptr && *hooks != '\0') {
    properties.emplace_back("STARTUP_HOOKS", hooks);
  }
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

RuntimeProperties propertiesOfAssembly(const LaunchTarget& target,
                                       const resolution::Additions& additions) {
  const std::string base = fs::path(target.assembly).parent_path().string();
  return {
      {"APP_CONTEXT_BASE_DIRECTORY", base == "/" ? base : base + "/"},
      {"APP_CONTEXT_DEPS_FILES", dependencyFiles(target.assembly, additions)},
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

RuntimePlan planRuntime(const LaunchTarget& target, const PluginLists& lists,
                        const Requirements& requirements) {
  RuntimePlan plan;
  plan.frameworkVersion = requirements.frameworkVersion;
  plan.wantedVersion = requirements.config.frameworkVersion;
  plan.additions = requirements.additions;
  planTrusted(plan, lists);
  planFolders(plan, target.folders(), lists, plan.additions);
  planResourceRoots(plan);
  plan.requiredDpc = assignPlaceholders(target.application, plan.placeholders);
  setProperties(plan);
  for (auto& property : propertiesOfAssembly(target, plan.additions)) {
    plan.properties.push_back(std::move(property));
  }
  addConfigured(plan.properties, requirements.config.properties);
  return plan;
}

RuntimePlan planPrepared(const std::vector<std::string>& folders, const PluginLists& lists,
                         const Requirements& requirements, const std::string& assembly) {
  RuntimePlan plan;
  plan.additions = requirements.additions;
  planTrusted(plan, lists);
  plan.assemblies.addTrusted({assembly});
  planFolders(plan, folders, lists, plan.additions);
  planResourceRoots(plan);
  setProperties(plan);
  addConfigured(plan.properties, requirements.config.properties);
  return plan;
}

RuntimeProperties propertiesOfApplication(const LaunchTarget& target, const PluginLists& lists,
                                          const resolution::Additions& additions) {
  RuntimePlan folders;
  planFolders(folders, target.folders(), lists, additions);
  RuntimeProperties properties = propertiesOfAssembly(target, additions);
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
