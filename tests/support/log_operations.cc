#include "tests/support/log_operations.h"

#include <map>
#include <set>

namespace quillon::test {
namespace {

using Operations = std::set<std::string>;

// Never destroyed: the code under test may log while the process exits.
const std::map<std::string, Operations>& operations() {
  const Operations strategy = {"Initialize", "Preload", "SetAppInfo", "GetDllPath",
                               "GetTPAAndSaveAsCache"};
  static const auto* all = new std::map<std::string, Operations>{
      {"dotnet-backtrace-creator.cc", {"print_all_backtrace", "print_name"}},
      {"dotnet-exception-monitor.cc", {"enable_exception_monitor"}},
      {"dotnet-policy-checker.cc",
       {"plugin_validate_dll", "create_pipe_server", "create_pipe_client", "check_signature",
        "verify_signature_file", "verify_signature", "verify_duid"}},
      {"dotnet-signal-handler.cc", {"registerSignalHandler"}},
      {"dpc-path-manager.cc",
       {"GetExtraDllPath", "GetTPA", "ChangeTempFDForDpcToRealDpcPath", "dpc_metadata_cb"}},
      {"dpc-path-manager.h",
       {"Decorator", "Initialize", "Preload", "SetAppInfo", "GetDllPath", "GetExtraDllPath",
        "GetTPA", "Finalize"}},
      {"log.cc",
       {"TTraceLog", "tvRunLoggingThread", "tvInitializeLogManager", "tvRedirectFD",
        "stdOutRedirect", "stdErrRedirect"}},
      {"log.h", {"FunctionEntryExitTracker", "~FunctionEntryExitTracker"}},
      {"plugin-dotnet-aot.cc", strategy},
      {"plugin-dotnet-inhouse-apitest.cc", strategy},
      {"plugin-dotnet-inhouse.cc", strategy},
      {"plugin-dotnet.cc",
       {"Initialize", "Preload", "SetAppInfo", "GetDllPath", "SendAppInfoToHybridAOTManager"}},
      {"plugin-util.cc",
       {"_SetAppInfo", "checkExecRunable", "changeProcessName", "GetLaunchedAppPackageID",
        "isServiceApp", "_package_info_app_cb", "GetZone", "enterSecureZone", "AttachZone",
        "HasPlatformPrivilege", "HasAppdebugPrivilege", "checkAppHasPlatformPrivilege",
        "preloadSharedLibraries", "GetCoBAAppInfoCB", "GetCoBASharedDirsInApp"}},
      {"privilege_checker.cc", {"HasPrivilege", "privilege_info_cb"}},
      {"quillon-tv-plugin.cc",
       {"plugin_initialize", "plugin_preload", "plugin_set_app_info", "plugin_has_log_control",
        "plugin_get_tpa", "plugin_get_dll_path", "plugin_get_extra_dll_path",
        "plugin_before_execute", "plugin_finalize", "setCetificationFile",
        "IsAllowedToActivateGCTracer", "CallFunctionForOT", "handleDebugPipe", "print_log_info",
        "print_log_debug"}},
      {"zq-function-global.cc", {"initialize", "ClearTimeZoneCacheDataCB"}},
      {"zq_utils.cc",
       {"removeAll", "removeFile", "moveFile", "copyFile", "createDir", "copyDir",
        "copyOwnershipAndPermissions", "setDirOwnershipAndPermissions", "setOwnership",
        "setDirPermissions", "setSmack", "isRealPath", "getRootPath", "writeStringToFile",
        "printAll"}},
  };
  return *all;
}

}  // namespace

bool mayLog(const std::string& file, const std::string& function) {
  const auto entry = operations().find(file);
  return entry == operations().end() || entry->second.contains(function);
}

}  // namespace quillon::test
