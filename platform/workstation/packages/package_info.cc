#include "platform/package_info.h"

#include <memory>
#include <new>

#include "packages/service.h"

using quillon::workstation::Application;
using quillon::workstation::findPackage;
using quillon::workstation::kInvalidArgument;
using quillon::workstation::kNoMemory;
using quillon::workstation::kOk;
using quillon::workstation::Package;

// A copy of the registry's data at the time of package_info_create.
struct package_info_s {
  Package package;
};

namespace {

package_info_app_component_type_e componentType(const Application& application) {
  return application.service ? PACKAGE_INFO_APP_COMPONENT_TYPE_SERVICE
                             : PACKAGE_INFO_APP_COMPONENT_TYPE_UI;
}

bool isKnown(package_info_app_component_type_e type) {
  return type == PACKAGE_INFO_APP_COMPONENT_TYPE_ALL ||
         type == PACKAGE_INFO_APP_COMPONENT_TYPE_UI ||
         type == PACKAGE_INFO_APP_COMPONENT_TYPE_SERVICE;
}

}  // namespace

int package_info_create(const char* package_id, package_info_h* handle) try {
  if (handle == nullptr) {
    return kInvalidArgument;
  }
  auto info = std::make_unique<package_info_s>();
  const int result = findPackage(package_id, info->package);
  if (result == kOk) {
    *handle = info.release();
  }
  return result;
} catch (const std::bad_alloc&) {
  return kNoMemory;
}

int package_info_destroy(package_info_h handle) {
  if (handle == nullptr) {
    return kInvalidArgument;
  }
  delete handle;
  return kOk;
}

int package_info_foreach_app_from_package(package_info_h handle,
                                          package_info_app_component_type_e type,
                                          package_info_app_cb cb, void* user_data) {
  if (handle == nullptr || cb == nullptr || !isKnown(type)) {
    return kInvalidArgument;
  }
  for (const Application& application : handle->package.applications) {
    const auto own = componentType(application);
    if (type != PACKAGE_INFO_APP_COMPONENT_TYPE_ALL && type != own) {
      continue;
    }
    if (!cb(own, application.id.c_str(), user_data)) {
      break;
    }
  }
  return kOk;
}

int package_info_foreach_privilege_info(package_info_h handle, package_info_privilege_info_cb cb,
                                        void* user_data) {
  if (handle == nullptr || cb == nullptr) {
    return kInvalidArgument;
  }
  for (const std::string& privilege : handle->package.privileges) {
    if (!cb(privilege.c_str(), user_data)) {
      break;
    }
  }
  return kOk;
}
