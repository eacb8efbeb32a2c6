#include "quillon/cli/completion_values.h"

#include "device_names.h"
#include "quillon/device/device_root.h"
#include "quillon/zone/zones.h"
#include "workstation/config_store.h"
#include "workstation/packages.h"

namespace quillon::cli {
namespace {

using Words = std::vector<std::string>;

// An answer that failed, for example for want of a device root, completes nothing.
template <typename T>
std::vector<T> orNone(Expected<std::vector<T>> answer) {
  return answer ? *std::move(answer) : std::vector<T>();
}

bool canEnter(const std::string& device) {
  return !device.empty() && device::enter(device, {}).has_value();
}

Words applicationIds() {
  Words ids;
  for (const auto& package : orNone(workstation::listPackages())) {
    for (const auto& application : package.applications) {
      ids.push_back(application.id);
    }
  }
  return ids;
}

Words packageIds() {
  Words ids;
  for (const auto& package : orNone(workstation::listPackages())) {
    ids.push_back(package.id);
  }
  return ids;
}

Words keys() {
  Words names;
  for (const auto& entry : orNone(workstation::listConfig({}))) {
    names.push_back(entry.key);
  }
  return names;
}

Words zoneNames(const std::string& device) {
  Words names;
  for (const auto& zone : orNone(zone::list(device))) {
    names.push_back(zone.name);
  }
  return names;
}

}  // namespace

Words completionValues(const std::string& placeholder, const std::string& device) {
  if (placeholder == "on|off") {
    return {"on", "off"};
  }
  if (placeholder == "TYPE") {
    return {device_names::kInhouseType, device_names::kInhouseApitestType,
            device_names::kDotnetType, device_names::kNormalType};
  }
  if (placeholder == "ZONE") {
    return zoneNames(device);
  }
  struct Source {
    const char* placeholder;
    Words (*values)();  // inside the device root
  };
  constexpr Source kSources[] = {
      {"APPID", applicationIds}, {"PACKAGE", packageIds}, {"KEY", keys}, {"GROUP", keys}};
  for (const Source& source : kSources) {
    if (placeholder == source.placeholder) {
      return canEnter(device) ? source.values() : Words();
    }
  }
  return {};
}

}  // namespace quillon::cli
