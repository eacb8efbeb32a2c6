#include "plugin/src/quillon-tv-plugin/launch_services.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "device_names.h"
#include "device_paths.h"
#include "platform/smack.h"
#include "plugin/src/quillon-tv-plugin/preload_method.h"
#include "util/log/log.h"
#include "util/zq_utils/descriptor.h"
#include "util/zq_utils/directory_walk.h"
#include "util/zq_utils/paths.h"

namespace {

constexpr char kGcTracerOptIn[] = "/opt/usr/home/owner/share/gctracer/";
constexpr char kDebugPipeDirectory[] = "/tmp";
constexpr char kAnyLabel[] = "*";

bool exists(const char* path) { return access(path, F_OK) == 0; }

struct CloseDirectory {
  void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

// Returns the name of the opt-in entry that matches `appId`, or an empty string if there is none.
std::string gcTracerEntryFor(const std::string& appId) {
  const Directory directory(opendir(kGcTracerOptIn));
  while (const dirent* entry = directory ? readdir(directory.get()) : nullptr) {
    if (!isSelfOrParent(entry->d_name) && strstr(entry->d_name, appId.c_str()) != nullptr) {
      return entry->d_name;
    }
  }
  return {};
}

// Sets the access label of a file of this user. Every user can create files in the directory of the
// pipes, so a link there, or another user's file, keeps its label. Nobody else can replace a file
// of this user meanwhile, because the directory is sticky (inode(7)). Returns false on failure.
bool labelForEveryone(const std::string& path) {
  const Descriptor file(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  return file.isOwnFile() && smack_setlabel(path.c_str(), kAnyLabel, SMACK_LABEL_ACCESS) >= 0;
}

}  // namespace

void setCetificationFile() {
  QLOG_SCOPE();
  const char* file = exists(device_paths::kUpdatedCertificates)
                         ? device_paths::kUpdatedCertificates
                         : device_paths::kPlatformCertificates;
  setenv(device_names::kCertificatesVariable, file, 1);
  QLOG_DEBUG("Use %s", file);
}

bool IsAllowedToActivateGCTracer(const std::string& appId) {
  QLOG_SCOPE();
  const std::string entry = gcTracerEntryFor(appId);
  if (entry.empty()) {
    QLOG_DEBUG("IsAllowedToActivateGCTracer : false");
    return false;
  }
  QLOG_INFO("IsAllowedToActivateGCTracer : true - %s %s", entry.c_str(), appId.c_str());
  return true;
}

void ActivateGCTracer(const char* appId) {
  QLOG_SCOPE();
  TTraceLog("[quillon-tv-plugin] Activate GC Tracer");
  void* function = nullptr;
  if (createPreloadMethod("ActivateGCTracer", &function) >= 0 && function != nullptr) {
    reinterpret_cast<void (*)(const char*)>(function)(appId);
  }
}

bool isObjectTrackerInstalled() { return exists(device_paths::kObjectTracker); }

void CallFunctionForOT() {
  QLOG_SCOPE();
  QLOG_INFO("[quillon-tv-plugin] OT is Installed. Start Server for OT.");
  void* function = nullptr;
  if (createPreloadMethod("StartServerForOT", &function) >= 0 && function != nullptr) {
    reinterpret_cast<void (*)()>(function)();
  }
}

void handleDebugPipe() {
  QLOG_SCOPE();
  QLOG_DEBUG("handleDebugPipe called!!");
  const std::string prefix = device_names::kDebuggerPipePrefix + std::to_string(getpid()) + "-";
  const Directory directory(opendir(kDebugPipeDirectory));
  if (directory == nullptr) {
    return;
  }
  while (const dirent* entry = readdir(directory.get())) {
    if (strstr(entry->d_name, prefix.c_str()) == nullptr) {
      continue;
    }
    const std::string path = concatPath(kDebugPipeDirectory, entry->d_name);
    if (!labelForEveryone(path)) {
      QLOG_ERROR("Fail to setxattr (%s)", path.c_str());
    }
  }
}
