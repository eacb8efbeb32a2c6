// Which operations of a launch open a span of the trace.
#include <gmock/gmock.h>

#include <set>

#include "tests/system/device/device_fixture.h"

namespace quillon::test {
namespace {

using ::testing::ElementsAreArray;

using Operations = std::set<std::string>;

constexpr char kApp[] = "org.example.app";
constexpr char kExec[] = "/opt/usr/apps/org.example.app/bin/A.dll";

class Spans : public DeviceLaunch {
 protected:
  void SetUp() override {
    DeviceLaunch::SetUp();
    if (IsSkipped()) {
      return;
    }
    makeApplication(kApp, "\"/tv/metadata/d.pc/required\" = \"one\"");
    put("/opt/usr/home/owner/share/gctracer/org.example.app");
    put("/opt/usr/home/owner/share/ObjectTracker/OT_Installed");
  }

  // Returns the operations that open a span in a whole launch, except those of the reader threads,
  // which depend on when a thread starts and on what a sanitizer writes to standard error.
  Operations launch(const std::string& type) {
    const DriverRun launched =
        run({"initialize=" + type, "get_tpa", "get_dll_path", "get_extra_dll_path",
             "get_native_dll_searching_path", "set_coreclr_info", "preload",
             std::string("set_app_info=") + kApp + "," + kExec, "has_log_control", "before_execute",
             "finalize"},
            kApp);
    Operations operations;
    for (const std::string& span : launched.spans) {
      operations.insert(operationOf(span));
    }
    for (const char* operation : {"stdOutRedirect", "stdErrRedirect", "writeStringTofile"}) {
      operations.erase(operation);
    }
    return operations;
  }

 private:
  // Returns "Class::operation" of "file.cc(1) type Class::operation(parameters)". Compilers write
  // the types differently.
  static std::string operationOf(const std::string& span) {
    const std::string signature = span.substr(span.find(") ") + 2);
    const std::string name = signature.substr(0, signature.find('('));
    return name.substr(name.find_last_of(" *") + 1);
  }
};

Operations together(Operations one, Operations other) {
  one.merge(other);
  return one;
}

const Operations kOfEveryType = {"ActivateGCTracer",
                                 "CallFunctionForOT",
                                 "CheckDotnetFlagAndRemoveCacheFiles",
                                 "GlobalAdapter::initialize",
                                 "GlobalAdapter::set_coreclr_info",
                                 "IsAllowedToActivateGCTracer",
                                 "_SetAppInfo",
                                 "changeProcessName",
                                 "checkExecRunable",
                                 "handleDebugPipe",
                                 "isAllowedExecPath",
                                 "plugin_before_execute",
                                 "plugin_finalize",
                                 "plugin_get_dll_path",
                                 "plugin_get_extra_dll_path",
                                 "plugin_get_native_dll_searching_path",
                                 "plugin_get_tpa",
                                 "plugin_has_log_control",
                                 "plugin_initialize",
                                 "plugin_preload",
                                 "plugin_set_app_info",
                                 "plugin_set_coreclr_info",
                                 "setCetificationFile",
                                 "tvInitializeLogManager",
                                 "tvRedirectFD",
                                 "tvRunLoggingThread"};

// Of the types that have lists and need the platform privilege.
const Operations kWithLists = together(
    kOfEveryType,
    {"DpcPathManagerDecorate::ChangeTempFDForDpcToRealDpcPath",
     "DpcPathManagerDecorate::DpcPathManagerDecorate", "DpcPathManagerDecorate::GetDpcList",
     "DpcPathManagerDecorate::GetExtraDllPath", "GetCoBADirFromCache", "GetCoBADirsAndSaveAsCache",
     "GetCoBASharedDirsInApp", "GetLaunchedAppPackageID", "HasPlatformPrivilege", "HasPrivilege",
     "addAssembliesFromDirectories", "addPlatformAssembliesPaths", "checkAppHasPlatformPrivilege",
     "privilege_info_cb", "scanDirsInDirectory"});

TEST_F(Spans, OfAnInHouseLaunch) {
  EXPECT_THAT(
      launch("inhouse"),
      ElementsAreArray(together(
          kWithLists, {"PluginDotnetInhouse::Finalize", "PluginDotnetInhouse::GetDllPath",
                       "PluginDotnetInhouse::GetTPA", "PluginDotnetInhouse::GetTPAAndSaveAsCache",
                       "PluginDotnetInhouse::GetTPAFromCache", "PluginDotnetInhouse::Initialize",
                       "PluginDotnetInhouse::PluginDotnetInhouse", "PluginDotnetInhouse::Preload",
                       "PluginDotnetInhouse::SetAppInfo", "preloadSharedLibraries"})));
}

TEST_F(Spans, OfAnApiTestLaunch) {
  EXPECT_THAT(
      launch("inhouseapitest"),
      ElementsAreArray(together(
          kWithLists,
          {"AotRemoverDecorate::AotRemoverDecorate", "AotRemoverDecorate::GetTPA",
           "ApitestDecorate::ApitestDecorate", "ApitestDecorate::GetTPA",
           "PluginDotnetInhouseApitest::Finalize", "PluginDotnetInhouseApitest::GetDllPath",
           "PluginDotnetInhouseApitest::GetTPA", "PluginDotnetInhouseApitest::GetTPAAndSaveAsCache",
           "PluginDotnetInhouseApitest::Initialize",
           "PluginDotnetInhouseApitest::PluginDotnetInhouseApitest",
           "PluginDotnetInhouseApitest::Preload", "PluginDotnetInhouseApitest::SetAppInfo"})));
}

TEST_F(Spans, OfANormalLaunch) {
  EXPECT_THAT(launch("normal"),
              ElementsAreArray(together(
                  kWithLists, {"PluginDotnetAot::Finalize", "PluginDotnetAot::GetDllPath",
                               "PluginDotnetAot::GetTPA", "PluginDotnetAot::GetTPAAndSaveAsCache",
                               "PluginDotnetAot::Initialize", "PluginDotnetAot::PluginDotnetAot",
                               "PluginDotnetAot::Preload", "PluginDotnetAot::SetAppInfo",
                               "preloadSharedLibraries"})));
}

TEST_F(Spans, OfALaunchInTheZone) {
  EXPECT_THAT(launch("dotnet"),
              ElementsAreArray(together(
                  kOfEveryType, {"GetZone", "PluginDotnet::Finalize", "PluginDotnet::GetDllPath",
                                 "PluginDotnet::GetExtraDllPath", "PluginDotnet::GetTPA",
                                 "PluginDotnet::Initialize", "PluginDotnet::PluginDotnet",
                                 "PluginDotnet::Preload", "PluginDotnet::SetAppInfo",
                                 "enterSecureZone", "isInAppZone", "preloadSharedLibraries"})));
}

}  // namespace
}  // namespace quillon::test
