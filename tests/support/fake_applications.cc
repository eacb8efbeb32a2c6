// The application services, with data from platform().packages.
#include <algorithm>
#include <cstring>
#include <optional>

#include "platform/app_info.h"
#include "tests/support/platform_recorder.h"

using quillon::test::closeHandle;
using quillon::test::failWithGarbage;
using quillon::test::FakeApplication;
using quillon::test::FakePackage;
using quillon::test::findApplication;
using quillon::test::Handle;
using quillon::test::idOf;
using quillon::test::kFailed;
using quillon::test::openHandle;
using quillon::test::packageOf;
using quillon::test::platform;
using quillon::test::record;
using quillon::test::textOf;

// Filters are separate handles. An application matches if all conditions hold.
struct app_info_metadata_filter_s {
  struct Condition {
    std::string key;
    std::optional<std::string> value;
  };
  std::vector<Condition> conditions;
};

namespace {

constexpr char kFilterId[] = "filter";

Handle* handleOf(app_info_h handle) { return reinterpret_cast<Handle*>(handle); }

bool holds(const FakeApplication& application,
           const app_info_metadata_filter_s::Condition& condition) {
  return std::any_of(application.metadata.begin(), application.metadata.end(),
                     [&](const auto& entry) {
                       return entry.first == condition.key &&
                              (!condition.value || entry.second == *condition.value);
                     });
}

bool matches(const FakeApplication& application, const app_info_metadata_filter_s& filter) {
  return std::all_of(filter.conditions.begin(), filter.conditions.end(),
                     [&](const auto& condition) { return holds(application, condition); });
}

bool storesHandle(const char* function, int failure) {
  return failure == 0 || platform().handlesOfFailures.contains(function);
}

// Calls the callback with a handle that the service owns.
bool show(const FakeApplication& application, app_info_filter_cb cb, void* user_data) {
  Handle handle{application.id, {}};
  return cb(reinterpret_cast<app_info_h>(&handle), user_data);
}

}  // namespace

extern "C" {

int app_info_create(const char* app_id, app_info_h* handle) {
  const int failure = record(__func__, {textOf(app_id)});
  if (app_id == nullptr || findApplication(app_id) == nullptr) {
    return failure != 0 ? failure : kFailed;
  }
  if (storesHandle(__func__, failure)) {
    *handle = reinterpret_cast<app_info_h>(openHandle(app_id));
  }
  return failure;
}

int app_info_destroy(app_info_h handle) {
  const int failure = record(__func__, {idOf(handleOf(handle))});
  return failure != 0 ? failure : closeHandle(handleOf(handle));
}

int app_info_get_package(app_info_h handle, char** package) {
  const int failure = record(__func__, {idOf(handleOf(handle))});
  const FakePackage* owner = handle == nullptr ? nullptr : packageOf(handleOf(handle)->id);
  if (failure != 0 || owner == nullptr) {
    return failWithGarbage(failure != 0 ? failure : kFailed, package);
  }
  *package = strdup(owner->id.c_str());
  return 0;
}

int app_info_foreach_metadata(app_info_h handle, app_info_metadata_cb cb, void* user_data) {
  const int failure = record(__func__, {idOf(handleOf(handle))});
  const FakeApplication* application =
      handle == nullptr ? nullptr : findApplication(handleOf(handle)->id);
  if (failure != 0 || application == nullptr) {
    return failure != 0 ? failure : kFailed;
  }
  for (const auto& [key, value] : application->metadata) {
    if (!cb(key.c_str(), value.c_str(), user_data)) {
      break;
    }
  }
  return 0;
}

int app_info_metadata_filter_create(app_info_metadata_filter_h* handle) {
  const int failure = record(__func__, {});
  if (storesHandle(__func__, failure)) {
    *handle = new app_info_metadata_filter_s;
    platform().openHandles.insert(kFilterId);
  }
  return failure;
}

int app_info_metadata_filter_destroy(app_info_metadata_filter_h handle) {
  const int failure = record(__func__, {handle == nullptr ? "null" : kFilterId});
  if (failure != 0 || handle == nullptr) {
    return failure != 0 ? failure : kFailed;
  }
  delete handle;
  const auto open = platform().openHandles.find(kFilterId);
  if (open != platform().openHandles.end()) {
    platform().openHandles.erase(open);
  }
  return 0;
}

int app_info_metadata_filter_add(app_info_metadata_filter_h handle, const char* key,
                                 const char* value) {
  const int failure =
      record(__func__, {handle == nullptr ? "null" : kFilterId, textOf(key), textOf(value)});
  if (failure != 0 || handle == nullptr) {
    return failure != 0 ? failure : kFailed;
  }
  handle->conditions.push_back(
      {key, value == nullptr ? std::nullopt : std::optional<std::string>(value)});
  return 0;
}

int app_info_metadata_filter_foreach(app_info_metadata_filter_h handle, app_info_filter_cb cb,
                                     void* user_data) {
  const int failure = record(__func__, {handle == nullptr ? "null" : kFilterId});
  if (failure != 0 || handle == nullptr) {
    return failure != 0 ? failure : kFailed;
  }
  for (const FakePackage& package : platform().packages) {
    for (const FakeApplication& application : package.applications) {
      if (matches(application, *handle) && !show(application, cb, user_data)) {
        return 0;
      }
    }
  }
  return 0;
}

}  // extern "C"
