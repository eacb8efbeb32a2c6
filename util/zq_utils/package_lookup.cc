#include "util/zq_utils/package_lookup.h"

#include "platform/pkgmgr_info.h"
#include "util/log/log.h"
#include "util/zq_utils/paths.h"

namespace {

// The record of a package. Null until it is opened; released by the destructor.
class PackageRecord {
 public:
  PackageRecord() = default;
  ~PackageRecord() {
    if (handle_ != nullptr) {
      pkgmgrinfo_pkginfo_destroy_pkginfo(handle_);
    }
  }
  PackageRecord(const PackageRecord&) = delete;
  PackageRecord& operator=(const PackageRecord&) = delete;

  // Opens the record for all users.
  bool open(const std::string& packageId) {
    return isOpened(pkgmgrinfo_pkginfo_get_pkginfo(packageId.c_str(), &handle_));
  }
  bool openForUser(const std::string& packageId, uid_t user) {
    return isOpened(pkgmgrinfo_pkginfo_get_usr_pkginfo(packageId.c_str(), user, &handle_));
  }
  // Each returns null if the record has no such entry. The strings are valid as long as the record.
  const char* mainApplication() const {
    char* id = nullptr;
    return pkgmgrinfo_pkginfo_get_mainappid(handle_, &id) == 0 ? id : nullptr;
  }
  const char* rootPath() const {
    char* path = nullptr;
    return pkgmgrinfo_pkginfo_get_root_path(handle_, &path) == 0 ? path : nullptr;
  }

 private:
  // A call that fails may leave any value in the handle.
  bool isOpened(int result) {
    if (result != 0) {
      handle_ = nullptr;
    }
    return handle_ != nullptr;
  }

  pkgmgrinfo_pkginfo_h handle_ = nullptr;
};

// The record of the main application of a package. Null until it is opened; released by the
// destructor.
class MainApplicationRecord {
 public:
  MainApplicationRecord() = default;
  ~MainApplicationRecord() {
    if (handle_ != nullptr) {
      pkgmgrinfo_appinfo_destroy_appinfo(handle_);
    }
  }
  MainApplicationRecord(const MainApplicationRecord&) = delete;
  MainApplicationRecord& operator=(const MainApplicationRecord&) = delete;

  bool open(const std::string& packageId) {
    if (!package_.open(packageId)) {
      return false;
    }
    const char* id = package_.mainApplication();
    if (id == nullptr || pkgmgrinfo_appinfo_get_appinfo(id, &handle_) != 0) {
      handle_ = nullptr;  // a call that fails may leave any value in it
    }
    return handle_ != nullptr;
  }
  // Each returns null if the record has no such entry. The strings are valid as long as the record.
  const char* executable() const {
    char* path = nullptr;
    return pkgmgrinfo_appinfo_get_exec(handle_, &path) == 0 ? path : nullptr;
  }
  const char* metadata(const std::string& key) const {
    char* value = nullptr;
    const int result = pkgmgrinfo_appinfo_get_metadata_value(handle_, key.c_str(), &value);
    return result == 0 ? value : nullptr;
  }

 private:
  PackageRecord package_;
  pkgmgrinfo_appinfo_h handle_ = nullptr;
};

}  // namespace

int getRootPath(const std::string& packageId, std::string& rootPath) {
  uid_t user = 0;
  if (pkgmgr_installer_info_get_target_uid(&user) != 0) {
    QLOG_ERROR("Failed to get UID");
    return -1;
  }
  PackageRecord package;
  if (!(user != 0 ? package.openForUser(packageId, user) : package.open(packageId))) {
    return -1;
  }
  const char* path = package.rootPath();
  if (path == nullptr) {
    return -1;
  }
  rootPath = path;
  return 0;
}

int getExecName(std::string packageId, std::string& execName) {
  MainApplicationRecord application;
  if (!application.open(packageId)) {
    return -1;
  }
  const char* path = application.executable();
  if (path == nullptr) {
    return -1;
  }
  execName = getFileName(path);
  return 0;
}

int getMetadataValue(std::string packageId, std::string key, std::string& value) {
  MainApplicationRecord application;
  if (!application.open(packageId)) {
    return -1;
  }
  if (const char* text = application.metadata(key)) {
    value = text;
  }
  return 0;
}
