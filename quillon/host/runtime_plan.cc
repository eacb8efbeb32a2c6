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

// Without a list of the plug-in's the framework's own assemblies are the trusted ones.
std::vector<std::string> frameworkAssemblies() {
  std::vector<std::string> paths;
  std::error_code error;
  for (fs::directory_iterator entry(device_paths::kNetcoreapp, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string path = entry->path().string();
    if (!simpleNameOf(path).empty()) paths.push_back(path);
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

bool isPlaceholder(const std::string& path) {
  return path.rfind(device_paths::kPlaceholderPrefix, 0) == 0;
}

bool canOpen(const std::string& directory) {
  std::error_code ignored;
  return fs::is_directory(directory, ignored) && access(directory.c_str(), R_OK) == 0;
}

// The placeholders go to the directories that can be opened, in order.
std::vector<RequiredDpc> assignPlaceholders(const workstation::Application& application,
                                            const std::vector<std::string>& placeholders) {
  std::vector<RequiredDpc> required;
  auto next = placeholders.begin();
  for (const std::string& package : requiredDpcPackages(application)) {
    RequiredDpc dpc{
        package, device_paths::kApplications + package + device_paths::kDpcOfPackage, {}};
    if (next != placeholders.end() && canOpen(dpc.directory)) dpc.placeholder = *next++;
    required.push_back(std::move(dpc));
  }
  return required;
}

// own  the application's folders
void planFolders(RuntimePlan& plan, const std::vector<std::string>& own, const PluginLists& lists) {
  plan.appPaths.addAll(own);
  plan.appPaths.addAll(splitList(lists.dllPath));
  plan.appPaths.addAll(splitList(lists.extraPath));
  for (const std::string& folder : plan.appPaths.entries()) {
    if (isPlaceholder(folder)) plan.placeholders.push_back(folder);
  }
  plan.nativePaths.addAll(splitList(lists.nativePath));
  plan.nativePaths.addAll(own);
  plan.nativePaths.add(device_paths::kNetcoreapp);
}

// Satellite assemblies of trusted ones lie in culture folders beside them; those of the others are
// found through APP_PATHS.
void planResourceRoots(RuntimePlan& plan) {
  for (const std::string& path : plan.assemblies.trusted()) {
    plan.resourceRoots.add(path.substr(0, path.rfind('/')));
  }
}

void addIfFile(std::vector<std::string>& files, const fs::path& file) {
  std::error_code ignored;
  if (fs::exists(file, ignored)) files.push_back(file.string());
}

// The dependency files that applications read through Microsoft.Extensions.DependencyModel.
std::string dependencyFiles(const std::string& assembly, const std::string& frameworkFile) {
  std::vector<std::string> files;
  addIfFile(files, fs::path(assembly).replace_extension(".deps.json"));
  addIfFile(files, frameworkFile);
  std::string list;
  for (const std::string& file : files) list += (list.empty() ? "" : ";") + file;
  return list;
}

// What .NET's own host passes on of the environment.
void addStartupHooks(RuntimeProperties& properties) {
  const char* const hooks = std::getenv("DOTNET_STARTUP_HOOKS");
  if (hooks != nullptr && *hooks != '\0') properties.emplace_back("STARTUP_HOOKS", hooks);
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

void setApplicationProperties(RuntimePlan& plan, const LaunchTarget& target) {
  for (auto& property : propertiesOfAssembly(target)) {
    plan.properties.push_back(std::move(property));
  }
}

// The application's own settings, which may not replace what the launch rests on.
void addConfigured(RuntimeProperties& properties, const RuntimeProperties& configured) {
  for (const auto& setting : configured) {
    const bool isTaken = std::any_of(properties.begin(), properties.end(), [&](const auto& known) {
      return known.first == setting.first;
    });
    if (!isTaken) properties.push_back(setting);
  }
}

std::string directoryBehind(const RuntimePlan& plan, const std::string& folder) {
  if (!isPlaceholder(folder)) return folder;
  for (const RequiredDpc& dpc : plan.requiredDpc) {
    if (dpc.placeholder == folder) return dpc.directory;
  }
  return {};
}

}  // namespace

Expected<RuntimePlan> planRuntime(const LaunchTarget& target, const PluginLists& lists) {
  const auto config = readRuntimeConfig(target.assembly);
  if (!config) return tl::unexpected(config.error());
  RuntimePlan plan;
  plan.frameworkVersion = frameworkVersionOf(device_paths::kNetcoreapp);
  plan.wantedVersion = config->frameworkVersion;
  plan.assemblies.addTrusted(lists.tpa ? splitList(*lists.tpa) : frameworkAssemblies());
  planFolders(plan, target.folders(), lists);
  planResourceRoots(plan);
  plan.requiredDpc = assignPlaceholders(target.application, plan.placeholders);
  setProperties(plan);
  setApplicationProperties(plan, target);
  addConfigured(plan.properties, config->properties);
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
    if (!directory.empty()) plan.assemblies.addFolder(directory, directory);
  }
}

}  // namespace quillon::host
