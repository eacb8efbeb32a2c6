// The order in which a launch calls the plug-in and the runtime. This file is the one place that
// states it: `quillon launch --plan` prints kDirectLaunchCalls, and tests compare both arrays with
// the calls that launches make.
#pragma once

#include <array>
#include <cstddef>

namespace quillon::host {

enum class LaunchCall {
  kInitialize,
  kGetTpa,
  kGetDllPath,
  kGetNativeDllSearchingPath,
  kGetExtraDllPath,
  kCoreclrInitialize,
  kSetCoreclrInfo,
  kPreload,
  kSetAppInfo,
  kHasLogControl,
  kBeforeExecute,
  kExecuteAssembly,
  kFinalize,
  kShutdown,
};

// The name of the function that a call calls.
constexpr const char* nameOf(LaunchCall call) {
  constexpr std::array kNames = {
      "plugin_initialize",         "plugin_get_tpa",
      "plugin_get_dll_path",       "plugin_get_native_dll_searching_path",
      "plugin_get_extra_dll_path", "coreclr_initialize",
      "plugin_set_coreclr_info",   "plugin_preload",
      "plugin_set_app_info",       "plugin_has_log_control",
      "plugin_before_execute",     "coreclr_execute_assembly",
      "plugin_finalize",           "coreclr_shutdown_2",
  };
  return kNames[static_cast<std::size_t>(call)];
}

// A direct launch (quillon/host/launch.h), which knows its application from the start. kPreload is
// made with --preload only, and kHasLogControl is not made with --raw.
inline constexpr std::array kDirectLaunchCalls = {
    LaunchCall::kInitialize,      LaunchCall::kGetTpa,
    LaunchCall::kGetDllPath,      LaunchCall::kGetNativeDllSearchingPath,
    LaunchCall::kGetExtraDllPath, LaunchCall::kCoreclrInitialize,
    LaunchCall::kSetCoreclrInfo,  LaunchCall::kPreload,
    LaunchCall::kSetAppInfo,      LaunchCall::kHasLogControl,
    LaunchCall::kBeforeExecute,   LaunchCall::kExecuteAssembly,
    LaunchCall::kFinalize,        LaunchCall::kShutdown,
};

// A prepared launch (quillon/launchpad/worker). Its worker makes the calls before kSetAppInfo
// before it knows the application. It captures the output before managed code can use the console,
// and always preloads. kHasLogControl is not made with --raw. Before it is ready, the worker may
// also run an assembly that does nothing, to warm up the runtime's path to Main.
inline constexpr std::array kPreparedLaunchCalls = {
    LaunchCall::kInitialize,      LaunchCall::kGetTpa,
    LaunchCall::kGetDllPath,      LaunchCall::kGetNativeDllSearchingPath,
    LaunchCall::kGetExtraDllPath, LaunchCall::kCoreclrInitialize,
    LaunchCall::kHasLogControl,   LaunchCall::kSetCoreclrInfo,
    LaunchCall::kPreload,         LaunchCall::kSetAppInfo,
    LaunchCall::kBeforeExecute,   LaunchCall::kExecuteAssembly,
    LaunchCall::kFinalize,        LaunchCall::kShutdown,
};

}  // namespace quillon::host
