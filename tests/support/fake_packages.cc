// The package services, with data from platform().packages.
#include <cstdio>

#include "platform/package_info.h"
#include "platform/pkgmgr_info.h"
#include "tests/support/platform_recorder.h"

using quillon::test::closeHandle;
using quillon::test::failWithGarbage;
using quillon::test::FakeApplication;
using quillon::test::FakePackage;
using quillon::test::findApplication;
using quillon::test::findPackage;
using quillon::test::Handle;
using quillon::test::idOf;
using quillon::test::kFailed;
using quillon::test::openHandle;
using quillon::test::platform;
using quillon::test::record;
using quillon::test::textOf;

namespace quillon::test {

namespace {

// All open handles. As on a device, some stay open until the process ends. Never destroyed, so that
// leak checkers can reach them.
std::set<Handle*>& handlesInUse() {
  static auto* handles = new std::set<Handle*>;
  return *handles;
}

}  // namespace

Handle* openHandle(const std::string& id) {
  const std::lock_guard lock(recorderMutex());
  platform().openHandles.insert(id);
  return *handlesInUse().insert(new Handle{id, {}}).first;
}

int closeHandle(Handle* handle) {
  const std::lock_guard lock(recorderMutex());
  if (handlesInUse().erase(handle) == 0) {
    return kFailed;
  }
  const auto open = platform().openHandles.find(handle->id);
  if (open != platform().openHandles.end()) {
    platform().openHandles.erase(open);
  }
  delete handle;
  return 0;
}

const FakePackage* findPackage(const std::string& id) {
  for (const FakePackage& package : platform().packages) {
    if (package.id == id) {
      return &package;
    }
  }
  return nullptr;
}

const FakePackage* packageOf(const std::string& applicationId) {
  for (const FakePackage& package : platform().packages) {
    for (const FakeApplication& application : package.applications) {
      if (application.id == applicationId) {
        return &package;
      }
    }
  }
  return nullptr;
}

const FakeApplication* findApplication(const std::string& id) {
  const FakePackage* package = packageOf(id);
  if (package == nullptr) {
    return nullptr;
  }
  for (const FakeApplication& application : package->applications) {
    if (application.id == id) {
      return &application;
    }
  }
  return nullptr;
}

}  // namespace quillon::test

namespace {

Handle* handleOf(void* handle) { return static_cast<Handle*>(handle); }
Handle* handleOf(package_info_h handle) { return reinterpret_cast<Handle*>(handle); }

// Returns a text that lives as long as the handle.
int give(Handle* handle, const std::string& text, char** out) {
  handle->text = text;
  *out = handle->text.data();
  return 0;
}

template <typename Opaque>
int openPackage(int failure, const char* id, Opaque* handle) {
  if (failure != 0 || id == nullptr || findPackage(id) == nullptr) {
    return failWithGarbage(failure != 0 ? failure : kFailed, handle);
  }
  *handle = reinterpret_cast<Opaque>(openHandle(id));
  return 0;
}

// The object of a handle; null for a null handle.
const FakePackage* packageBehind(Handle* handle) {
  return handle == nullptr ? nullptr : findPackage(handle->id);
}

const FakeApplication* applicationBehind(Handle* handle) {
  return handle == nullptr ? nullptr : findApplication(handle->id);
}

}  // namespace

extern "C" {

int package_info_create(const char* package_id, package_info_h* handle) {
  const int failure = record(__func__, {textOf(package_id)});
  if (failure == 0 && platform().nullHandles.count(__func__) != 0) {
    *handle = nullptr;
    return 0;
  }
  return openPackage(failure, package_id, handle);
}

int package_info_destroy(package_info_h handle) {
  const int failure = record(__func__, {idOf(handleOf(handle))});
  return failure != 0 ? failure : closeHandle(handleOf(handle));
}

int package_info_foreach_app_from_package(package_info_h handle,
                                          package_info_app_component_type_e type,
                                          package_info_app_cb cb, void* user_data) {
  const int failure = record(__func__, {idOf(handleOf(handle)), std::to_string(type)});
  const FakePackage* package = packageBehind(handleOf(handle));
  if (failure != 0 || package == nullptr) {
    return failure != 0 ? failure : kFailed;
  }
  for (const FakeApplication& application : package->applications) {
    const auto itsType = application.service ? PACKAGE_INFO_APP_COMPONENT_TYPE_SERVICE
                                             : PACKAGE_INFO_APP_COMPONENT_TYPE_UI;
    const bool wanted = type == PACKAGE_INFO_APP_COMPONENT_TYPE_ALL || type == itsType;
    if (wanted && !cb(itsType, application.id.c_str(), user_data)) {
      break;
    }
  }
  return 0;
}

int package_info_foreach_privilege_info(package_info_h handle, package_info_privilege_info_cb cb,
                                        void* user_data) {
  const int failure = record(__func__, {idOf(handleOf(handle))});
  const FakePackage* package = packageBehind(handleOf(handle));
  if (failure != 0 || package == nullptr) {
    return failure != 0 ? failure : kFailed;
  }
  for (const std::string& privilege : package->privileges) {
    if (!cb(privilege.c_str(), user_data)) {
      break;
    }
  }
  return 0;
}

int pkgmgrinfo_pkginfo_get_pkginfo(const char* package_id, pkgmgrinfo_pkginfo_h* handle) {
  return openPackage(record(__func__, {textOf(package_id)}), package_id, handle);
}

int pkgmgrinfo_pkginfo_get_usr_pkginfo(const char* package_id, uid_t uid,
                                       pkgmgrinfo_pkginfo_h* handle) {
  const int failure = record(__func__, {textOf(package_id), std::to_string(uid)});
  return openPackage(failure, package_id, handle);
}

int pkgmgrinfo_pkginfo_get_mainappid(pkgmgrinfo_pkginfo_h handle, char** app_id) {
  const int failure = record(__func__, {idOf(handleOf(handle))});
  const FakePackage* package = packageBehind(handleOf(handle));
  if (failure != 0 || package == nullptr || package->applications.empty()) {
    return failWithGarbage(failure != 0 ? failure : kFailed, app_id);
  }
  return give(handleOf(handle), package->applications.front().id, app_id);
}

int pkgmgrinfo_pkginfo_get_root_path(pkgmgrinfo_pkginfo_h handle, char** path) {
  const int failure = record(__func__, {idOf(handleOf(handle))});
  const FakePackage* package = packageBehind(handleOf(handle));
  if (failure != 0 || package == nullptr) {
    return failWithGarbage(failure != 0 ? failure : kFailed, path);
  }
  return give(handleOf(handle), package->rootPath, path);
}

int pkgmgrinfo_pkginfo_destroy_pkginfo(pkgmgrinfo_pkginfo_h handle) {
  const int failure = record(__func__, {idOf(handleOf(handle))});
  return failure != 0 ? failure : closeHandle(handleOf(handle));
}

int pkgmgrinfo_appinfo_get_appinfo(const char* app_id, pkgmgrinfo_appinfo_h* handle) {
  const int failure = record(__func__, {textOf(app_id)});
  if (failure != 0 || app_id == nullptr || findApplication(app_id) == nullptr) {
    return failWithGarbage(failure != 0 ? failure : kFailed, handle);
  }
  *handle = openHandle(app_id);
  return 0;
}

int pkgmgrinfo_appinfo_get_exec(pkgmgrinfo_appinfo_h handle, char** exec) {
  const int failure = record(__func__, {idOf(handleOf(handle))});
  const FakeApplication* application = applicationBehind(handleOf(handle));
  if (failure != 0 || application == nullptr) {
    return failWithGarbage(failure != 0 ? failure : kFailed, exec);
  }
  return give(handleOf(handle), application->exec, exec);
}

int pkgmgrinfo_appinfo_get_metadata_value(pkgmgrinfo_appinfo_h handle, const char* key,
                                          char** value) {
  const int failure = record(__func__, {idOf(handleOf(handle)), textOf(key)});
  const FakeApplication* application = applicationBehind(handleOf(handle));
  if (failure != 0 || application == nullptr) {
    return failWithGarbage(failure != 0 ? failure : kFailed, value);
  }
  for (const auto& [itsKey, itsValue] : application->metadata) {
    if (itsKey == key) {
      return give(handleOf(handle), itsValue, value);
    }
  }
  return failWithGarbage(kFailed, value);
}

int pkgmgrinfo_appinfo_destroy_appinfo(pkgmgrinfo_appinfo_h handle) {
  const int failure = record(__func__, {idOf(handleOf(handle))});
  return failure != 0 ? failure : closeHandle(handleOf(handle));
}

int pkgmgr_installer_info_get_target_uid(uid_t* uid) {
  const int failure = record(__func__, {});
  *uid = failure == 0 ? platform().targetUser : ~uid_t{0};
  return failure;
}

int aul_app_get_pkgid_bypid(int pid, char* package_id, int length) {
  const int failure = record(__func__, {std::to_string(pid), std::to_string(length)});
  const auto process = platform().processes.find(pid);
  if (failure != 0 || process == platform().processes.end()) {
    return failure != 0 ? failure : kFailed;
  }
  std::snprintf(package_id, static_cast<std::size_t>(length), "%s", process->second.c_str());
  return 0;
}

}  // extern "C"
