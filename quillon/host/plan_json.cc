#include <nlohmann/json.hpp>

#include "device_paths.h"
#include "quillon/host/assemblies/assembly_table.h"
#include "quillon/host/assemblies/path_list.h"
#include "quillon/host/plan.h"

namespace quillon::host {
namespace {

using Json = nlohmann::ordered_json;

Json listJson(const std::optional<std::string>& list) {
  return list ? Json(splitList(*list)) : Json(nullptr);
}

Json applicationJson(const LaunchTarget& target, bool readyToRun) {
  return {{"id", target.application.id},
          {"package", target.package.id},
          {"version", target.package.version},
          {"root", target.package.rootPath},
          {"type", target.type},
          {"executable", target.exec},
          {"assembly", target.assembly},
          {"readyToRun", readyToRun}};
}

Json listsJson(const LaunchPlan& plan) {
  return {{"plugin_get_tpa", listJson(plan.lists.tpa)},
          {"plugin_get_dll_path", plan.lists.dllPath},
          {"plugin_get_native_dll_searching_path", plan.lists.nativePath},
          {"plugin_get_extra_dll_path", plan.lists.extraPath}};
}

Json trustedJson(const LaunchPlan& plan) {
  return {{"count", plan.runtime.assemblies.trusted().size()},
          {"source", !plan.lists.tpa            ? "framework"
                     : isTrustedFromCache(plan) ? "cache"
                                                : "search"}};
}

Json cacheJson(const device::CachedList& cache, bool isUsed) {
  return {{"file", cache.file},
          {"used", isUsed},
          {"outdated", cache.outdated.empty() ? Json() : Json(cache.outdated)}};
}

Json cachesJson(const LaunchPlan& plan) {
  if (!plan.caches) {
    return nullptr;
  }
  return {{"trusted", cacheJson(plan.caches->trusted, isTrustedFromCache(plan))},
          {"shared", cacheJson(plan.caches->shared, isSharedFromCache(plan))}};
}

Json requiredJson(const RuntimePlan& runtime) {
  Json required = Json::array();
  for (const RequiredDpc& dpc : runtime.requiredDpc) {
    required.push_back({{"package", dpc.package},
                        {"directory", dpc.directory},
                        {"placeholder", dpc.placeholder.empty() ? Json() : Json(dpc.placeholder)}});
  }
  return required;
}

Json shadowsJson(const AssemblyTable& assemblies) {
  Json shadows = Json::array();
  for (const Shadow& shadow : assemblies.shadows()) {
    shadows.push_back({{"name", shadow.name}, {"path", shadow.loser}, {"lostTo", shadow.winner}});
  }
  return shadows;
}

Json rejectionsJson(const AssemblyTable& assemblies) {
  Json rejections = Json::array();
  for (const Rejection& rejection : assemblies.rejections()) {
    rejections.push_back({{"path", rejection.path}, {"reason", rejection.reason}});
  }
  return rejections;
}

Json propertiesJson(const RuntimeProperties& properties) {
  Json object = Json::object();
  for (const auto& [name, value] : properties) {
    object[name] = value;
  }
  return object;
}

Json failureJson(const Failure& failure) {
  return {{"what", failure.what}, {"remedy", failure.remedy}};
}

Json refusalsJson(const std::vector<Failure>& failures) {
  Json refusals = Json::array();
  for (const Failure& failure : failures) {
    Json entry = failureJson(failure);
    entry["status"] = static_cast<int>(failure.status);
    refusals.push_back(std::move(entry));
  }
  return refusals;
}

Json warningsJson(const std::vector<Failure>& failures) {
  Json warnings = Json::array();
  for (const Failure& failure : failures) {
    warnings.push_back(failureJson(failure));
  }
  return warnings;
}

Json sourcesJson(const resolution::Additions& additions, const std::vector<std::string>& paths) {
  Json sources = Json::array();
  for (const std::string& path : paths) {
    sources.push_back({{"path", path}, {"source", resolution::sourceOf(additions, path)}});
  }
  return sources;
}

Json additionsJson(const resolution::Additions& additions) {
  Json frameworks = Json::array();
  for (const resolution::SharedFramework& framework : additions.frameworks) {
    frameworks.push_back({{"name", framework.name},
                          {"version", framework.version},
                          {"directory", framework.directory}});
  }
  return {{"frameworks", frameworks},
          {"assemblies", sourcesJson(additions, additions.assemblies)},
          {"nativeDirectories", sourcesJson(additions, additions.nativeFolders)}};
}

Json frameworkJson(const RuntimePlan& runtime) {
  const auto textOrNull = [](const std::string& text) {
    return text.empty() ? Json() : Json(text);
  };
  return {{"directory", device_paths::kNetcoreapp},
          {"version", textOrNull(runtime.frameworkVersion)},
          {"wanted", textOrNull(runtime.wantedVersion)}};
}

}  // namespace

void printPlanJson(const LaunchPlan& plan, std::ostream& out) {
  const RuntimePlan& runtime = plan.runtime;
  const Json json = {{"application", applicationJson(plan.target, plan.readyToRun)},
                     {"device", plan.options.device.string()},
                     {"plugin", plan.plugin},
                     {"framework", frameworkJson(runtime)},
                     {"calls", formatCalls(plan)},
                     {"lists", listsJson(plan)},
                     {"trustedAssemblies", trustedJson(plan)},
                     {"caches", cachesJson(plan)},
                     {"additions", additionsJson(runtime.additions)},
                     {"placeholders", runtime.placeholders},
                     {"requiredPackages", requiredJson(runtime)},
                     {"sharedDirectories", cobaDirectoriesOf(plan.lists)},
                     {"shadowed", shadowsJson(runtime.assemblies)},
                     {"leftOut", rejectionsJson(runtime.assemblies)},
                     {"properties", propertiesJson(runtime.properties)},
                     {"arguments", plan.options.arguments},
                     {"warnings", warningsJson(warningsOf(plan))},
                     {"refusals", refusalsJson(plan.refusals)},
                     {"missing", plan.missing ? failureJson(*plan.missing) : Json()}};
  // A file name may contain any bytes. Bytes that are not valid UTF-8 become U+FFFD.
  out << json.dump(2, ' ', false, Json::error_handler_t::replace) << std::endl;
}

}  // namespace quillon::host
