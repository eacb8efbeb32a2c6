#include "platform/pkgmgr_info.h"

#include <unistd.h>

#include <cstring>
#include <memory>
#include <new>

#include "packages/process_registry.h"
#include "packages/service.h"

using quillon::workstation::findApplication;
using quillon::workstation::findPackage;
using quillon::workstation::FoundApplication;
using quillon::workstation::kInvalidArgument;
using quillon::workstation::kNoMemory;
using quillon::workstation::kNotFound;
using quillon::workstation::kOk;
using quillon::workstation::kTooLong;
using quillon::workstation::Package;
using quillon::workstation::packageOfProcess;

namespace {

// The owner of packages for all users.
constexpr uid_t kAllUsers = 0;

// The interface's handles are void*. They point to a Package or a FoundApplication: a copy of the
// registry's data at the time when the handle was created.
template <typename Record>
Record* recordOf(void* handle) {
  return static_cast<Record*>(handle);
}

template <typename Record>
int destroy(void* handle) {
  if (handle == nullptr) {
    return kInvalidArgument;
  }
  delete recordOf<Record>(handle);
  return kOk;
}

// The interface returns texts as char*, but callers must not change them.
int returnText(std::string& text, char** out) {
  *out = text.data();
  return kOk;
}

}  // namespace

int pkgmgrinfo_pkginfo_get_pkginfo(const char* package_id, pkgmgrinfo_pkginfo_h* handle) {
  return pkgmgrinfo_pkginfo_get_usr_pkginfo(package_id, kAllUsers, handle);
}

int pkgmgrinfo_pkginfo_get_usr_pkginfo(const char* package_id, uid_t uid,
                                       pkgmgrinfo_pkginfo_h* handle) try {
  if (handle == nullptr) {
    return kInvalidArgument;
  }
  auto package = std::make_unique<Package>();
  const int result = findPackage(package_id, uid, *package);
  if (result == kOk) {
    *handle = package.release();
  }
  return result;
} catch (const std::bad_alloc&) {
  return kNoMemory;
}

int pkgmgrinfo_pkginfo_get_mainappid(pkgmgrinfo_pkginfo_h handle, char** app_id) {
  if (handle == nullptr || app_id == nullptr) {
    return kInvalidArgument;
  }
  auto& applications = recordOf<Package>(handle)->applications;
  return applications.empty() ? kNotFound : returnText(applications.front().id, app_id);
}

int pkgmgrinfo_pkginfo_get_root_path(pkgmgrinfo_pkginfo_h handle, char** path) {
  if (handle == nullptr || path == nullptr) {
    return kInvalidArgument;
  }
  return returnText(recordOf<Package>(handle)->rootPath, path);
}

int pkgmgrinfo_pkginfo_destroy_pkginfo(pkgmgrinfo_pkginfo_h handle) {
  return destroy<Package>(handle);
}

int pkgmgrinfo_appinfo_get_appinfo(const char* app_id, pkgmgrinfo_appinfo_h* handle) try {
  if (handle == nullptr) {
    return kInvalidArgument;
  }
  auto found = std::make_unique<FoundApplication>();
  const int result = findApplication(app_id, *found);
  if (result == kOk) {
    *handle = found.release();
  }
  return result;
} catch (const std::bad_alloc&) {
  return kNoMemory;
}

int pkgmgrinfo_appinfo_get_exec(pkgmgrinfo_appinfo_h handle, char** exec) {
  if (handle == nullptr || exec == nullptr) {
    return kInvalidArgument;
  }
  return returnText(recordOf<FoundApplication>(handle)->application.exec, exec);
}

int pkgmgrinfo_appinfo_get_metadata_value(pkgmgrinfo_appinfo_h handle, const char* key,
                                          char** value) {
  if (handle == nullptr || key == nullptr || value == nullptr) {
    return kInvalidArgument;
  }
  for (auto& [name, text] : recordOf<FoundApplication>(handle)->application.metadata) {
    if (name == key) {
      return returnText(text, value);
    }
  }
  return kNotFound;
}

int pkgmgrinfo_appinfo_destroy_appinfo(pkgmgrinfo_appinfo_h handle) {
  return destroy<FoundApplication>(handle);
}

int pkgmgr_installer_info_get_target_uid(uid_t* uid) {
  if (uid == nullptr) {
    return kInvalidArgument;
  }
  *uid = geteuid();
  return kOk;
}

int aul_app_get_pkgid_bypid(int pid, char* package_id, int length) try {
  if (pid <= 0 || package_id == nullptr || length <= 0) {
    return kInvalidArgument;
  }
  const auto package = packageOfProcess(pid);
  if (!package) {
    return kNotFound;
  }
  if (package->size() >= static_cast<size_t>(length)) {
    return kTooLong;
  }
  std::memcpy(package_id, package->c_str(), package->size() + 1);
  return kOk;
} catch (const std::bad_alloc&) {
  return kNoMemory;
}
