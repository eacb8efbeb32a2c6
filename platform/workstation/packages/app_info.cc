#include "platform/app_info.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "packages/service.h"

using quillon::workstation::findAllApplications;
using quillon::workstation::findApplication;
using quillon::workstation::FoundApplication;
using quillon::workstation::kInvalidArgument;
using quillon::workstation::kNoMemory;
using quillon::workstation::kOk;

// A copy of the registry's data at the time of app_info_create.
struct app_info_s {
  FoundApplication found;
};

struct app_info_metadata_filter_s {
  struct Condition {
    std::string key;
    std::optional<std::string> value;  // empty: any
  };
  std::vector<Condition> conditions;
};

namespace {

using Condition = app_info_metadata_filter_s::Condition;

bool holds(const Condition& condition, const FoundApplication& app) {
  const auto& metadata = app.application.metadata;
  return std::any_of(metadata.begin(), metadata.end(), [&](const auto& entry) {
    return entry.first == condition.key && (!condition.value || *condition.value == entry.second);
  });
}

bool matches(const app_info_metadata_filter_s& filter, const FoundApplication& app) {
  return std::all_of(filter.conditions.begin(), filter.conditions.end(),
                     [&](const Condition& condition) { return holds(condition, app); });
}

}  // namespace

int app_info_create(const char* app_id, app_info_h* handle) try {
  if (handle == nullptr) {
    return kInvalidArgument;
  }
  auto info = std::make_unique<app_info_s>();
  const int result = findApplication(app_id, info->found);
  if (result == kOk) {
    *handle = info.release();
  }
  return result;
} catch (const std::bad_alloc&) {
  return kNoMemory;
}

int app_info_destroy(app_info_h handle) {
  if (handle == nullptr) {
    return kInvalidArgument;
  }
  delete handle;
  return kOk;
}

int app_info_get_package(app_info_h handle, char** package) {
  if (handle == nullptr || package == nullptr) {
    return kInvalidArgument;
  }
  char* copy = strdup(handle->found.packageId.c_str());
  if (copy == nullptr) {
    return kNoMemory;
  }
  *package = copy;
  return kOk;
}

int app_info_foreach_metadata(app_info_h handle, app_info_metadata_cb cb, void* user_data) {
  if (handle == nullptr || cb == nullptr) {
    return kInvalidArgument;
  }
  for (const auto& [key, value] : handle->found.application.metadata) {
    if (!cb(key.c_str(), value.c_str(), user_data)) {
      break;
    }
  }
  return kOk;
}

int app_info_metadata_filter_create(app_info_metadata_filter_h* handle) try {
  if (handle == nullptr) {
    return kInvalidArgument;
  }
  *handle = new app_info_metadata_filter_s;
  return kOk;
} catch (const std::bad_alloc&) {
  return kNoMemory;
}

int app_info_metadata_filter_destroy(app_info_metadata_filter_h handle) {
  if (handle == nullptr) {
    return kInvalidArgument;
  }
  delete handle;
  return kOk;
}

int app_info_metadata_filter_add(app_info_metadata_filter_h handle, const char* key,
                                 const char* value) try {
  if (handle == nullptr || key == nullptr) {
    return kInvalidArgument;
  }
  Condition condition{key, std::nullopt};
  if (value != nullptr) {
    condition.value = value;
  }
  handle->conditions.push_back(std::move(condition));
  return kOk;
} catch (const std::bad_alloc&) {
  return kNoMemory;
}

int app_info_metadata_filter_foreach(app_info_metadata_filter_h handle, app_info_filter_cb cb,
                                     void* user_data) {
  if (handle == nullptr || cb == nullptr) {
    return kInvalidArgument;
  }
  std::vector<FoundApplication> all;
  if (const int result = findAllApplications(all); result != kOk) {
    return result;
  }
  for (FoundApplication& found : all) {
    if (!matches(*handle, found)) {
      continue;
    }
    app_info_s info{std::move(found)};
    if (!cb(&info, user_data)) {
      break;
    }
  }
  return kOk;
}
