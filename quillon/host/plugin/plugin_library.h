// The plug-in as a device launcher uses it: a shared library whose functions are looked up by name.
#pragma once

#include <filesystem>

#include "quillon/base/failure.h"
#include "quillon_tv_plugin.h"

namespace quillon::host {

struct PluginLibrary {
  decltype(&plugin_initialize) initialize = nullptr;
  decltype(&plugin_preload) preload = nullptr;
  decltype(&plugin_set_app_info) setAppInfo = nullptr;
  decltype(&plugin_has_log_control) hasLogControl = nullptr;
  decltype(&plugin_get_tpa) getTpa = nullptr;
  decltype(&plugin_get_dll_path) getDllPath = nullptr;
  decltype(&plugin_get_native_dll_searching_path) getNativeDllSearchingPath = nullptr;
  decltype(&plugin_get_extra_dll_path) getExtraDllPath = nullptr;
  decltype(&plugin_set_coreclr_info) setCoreclrInfo = nullptr;
  decltype(&plugin_before_execute) beforeExecute = nullptr;
  decltype(&plugin_finalize) finalize = nullptr;
  decltype(&check_signature) checkSignature = nullptr;
  decltype(&plugin_validate_dll) validateDll = nullptr;
  decltype(&create_pipe_server) createPipeServer = nullptr;
  decltype(&create_pipe_client) createPipeClient = nullptr;
};

// The path of the plug-in that belongs to an executable: in "../lib" of a build folder, otherwise
// in the library folder of the installation.
std::filesystem::path defaultPlugin(const std::filesystem::path& executable);

// The absolute path of the plug-in that the user named, or the default one of the running program
// if `named` is empty. Relative paths need the working directory of the program's start.
std::filesystem::path pluginOrDefault(const std::filesystem::path& named);

// Loads the plug-in. It is never unloaded, because it registers signal handlers and starts threads.
// A failure names the file or the missing function.
[[nodiscard]] Expected<PluginLibrary> loadPlugin(const std::filesystem::path& file);

}  // namespace quillon::host
