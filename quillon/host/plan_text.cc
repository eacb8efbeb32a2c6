#include <algorithm>
#include <iomanip>
#include <map>
#include <set>

#include "device_paths.h"
#include "quillon/host/plan.h"

namespace quillon::host {
namespace {

constexpr int kNameWidth = 16;

void line(std::ostream& out, const std::string& name, const std::string& value) {
  out << std::left << std::setw(kNameWidth) << name << ' ' << value << '\n';
}

void section(std::ostream& out, const std::string& title, const std::vector<std::string>& entries) {
  if (entries.empty()) {
    return;
  }
  out << '\n' << title << '\n';
  for (const std::string& entry : entries) {
    out << "  " << entry << '\n';
  }
}

std::string frameworkText(const RuntimePlan& runtime) {
  std::string text = device_paths::kNetcoreapp;
  text += runtime.frameworkVersion.empty() ? " (version unknown)"
                                           : " (" + runtime.frameworkVersion + ")";
  if (!runtime.wantedVersion.empty()) {
    text += ", wanted " + runtime.wantedVersion;
  }
  return text;
}

// Of the plug-in's list, or of the framework folder.
size_t countListed(const RuntimePlan& runtime) {
  const std::set<std::string> added(runtime.additions.assemblies.begin(),
                                    runtime.additions.assemblies.end());
  const auto& trusted = runtime.assemblies.trusted();
  return static_cast<size_t>(std::count_if(trusted.begin(), trusted.end(), [&](const auto& path) {
    return added.find(path) == added.end();
  }));
}

// Says whether a list of the plug-in comes from its cache or from a search.
std::string originText(const LaunchPlan& plan, bool isFromCache, const char* cache) {
  if (!plan.caches) {
    return "from the plug-in";
  }
  return isFromCache ? std::string("from the plug-in, out of its cache ") + cache
                     : "from the plug-in, by searching";
}

std::string tpaText(const LaunchPlan& plan) {
  const std::string count = std::to_string(countListed(plan.runtime));
  const std::string origin =
      plan.lists.tpa ? originText(plan, isTrustedFromCache(plan), device_paths::kTpaCache)
                     : "of the framework folder";
  return count + " assemblies " + origin;
}

std::string sharedText(const LaunchPlan& plan) {
  return std::to_string(cobaDirectoriesOf(plan.lists).size()) + " folders " +
         originText(plan, isSharedFromCache(plan), device_paths::kCobaCache);
}

std::string readyToRunText(const LaunchPlan& plan) {
  if (plan.readyToRun) {
    return "yes, the assembly is ReadyToRun";
  }
  return "none: has no ReadyToRun code, starts slower; build it with PublishReadyToRun";
}

// What the launch adds to the device's framework, by source.
std::vector<std::string> additionText(const RuntimePlan& runtime) {
  const resolution::Additions& additions = runtime.additions;
  std::map<std::string, size_t> counts;
  for (const std::string& path : additions.assemblies) {
    ++counts[resolution::sourceOf(additions, path)];
  }
  std::vector<std::string> lines;
  lines.reserve(counts.size() + additions.nativeFolders.size());
  for (const auto& [source, count] : counts) {
    lines.push_back(std::to_string(count) + (count == 1 ? " assembly of " : " assemblies of ") +
                    source);
  }
  for (const std::string& folder : additions.nativeFolders) {
    lines.push_back("native folder " + folder + " of " + resolution::sourceOf(additions, folder));
  }
  return lines;
}

std::vector<std::string> requiredText(const RuntimePlan& runtime) {
  std::vector<std::string> lines;
  lines.reserve(runtime.requiredDpc.size());
  for (const RequiredDpc& dpc : runtime.requiredDpc) {
    lines.push_back(dpc.package + ": " + dpc.directory +
                    (dpc.placeholder.empty() ? " (not reachable)" : " through " + dpc.placeholder));
  }
  return lines;
}

std::vector<std::string> shadowText(const AssemblyTable& assemblies) {
  std::vector<std::string> lines;
  lines.reserve(assemblies.shadows().size());
  for (const Shadow& shadow : assemblies.shadows()) {
    lines.push_back(shadow.name + ": " + shadow.loser + " lost to " + shadow.winner);
  }
  for (const Rejection& rejection : assemblies.rejections()) {
    lines.push_back(rejection.path + " left out: " + rejection.reason);
  }
  return lines;
}

// Shows all properties except the list of trusted assemblies, which is too long.
std::vector<std::string> propertyText(const RuntimePlan& runtime) {
  std::vector<std::string> lines;
  lines.reserve(runtime.properties.size());
  for (const auto& [name, value] : runtime.properties) {
    const bool isLong = name == "TRUSTED_PLATFORM_ASSEMBLIES";
    lines.push_back(name + "=" + (isLong ? "(as above)" : value));
  }
  return lines;
}

std::vector<std::string> failureText(const std::vector<Failure>& failures) {
  std::vector<std::string> lines;
  lines.reserve(failures.size());
  for (const Failure& failure : failures) {
    lines.push_back(failure.what + "; " + failure.remedy);
  }
  return lines;
}

}  // namespace

void printPlanText(const LaunchPlan& plan, std::ostream& out) {
  line(out, "application", plan.target.application.id);
  line(out, "package", plan.target.package.id + " " + plan.target.package.version);
  line(out, "type", plan.target.type);
  line(out, "executable", plan.target.exec);
  line(out, "device root", plan.options.device.string());
  line(out, "plug-in", plan.plugin);
  line(out, "framework", frameworkText(plan.runtime));
  line(out, "trusted list", tpaText(plan));
  line(out, "shared list", sharedText(plan));
  line(out, "compiled code", readyToRunText(plan));
  section(out, "added to the device's framework", additionText(plan.runtime));
  section(out, "calls, in order", formatCalls(plan));
  section(out, "assembly folders (APP_PATHS)", plan.runtime.appPaths.entries());
  section(out, "left out of APP_PATHS", plan.runtime.appPaths.ignored());
  section(out, "shared folders of packages", cobaDirectoriesOf(plan.lists));
  section(out, "required packages", requiredText(plan.runtime));
  section(out, "one name, one assembly", shadowText(plan.runtime.assemblies));
  section(out, "runtime properties", propertyText(plan.runtime));
  section(out, "warnings", failureText(warningsOf(plan)));
  section(out, "the launch would be refused", failureText(plan.refusals));
  out.flush();
}

}  // namespace quillon::host
