#include "quillon/host/plugin/plugin_calls.h"

#include <exception>

#include "device_paths.h"
#include "quillon/base/files.h"
#include "quillon/base/trace_span.h"
#include "quillon/host/plugin/boost_listener.h"
#include "quillon/host/plugin/captured_output.h"
#include "quillon/host/plugin/refusal_watch.h"
#include "workstation/last_errors.h"

namespace quillon::host {
namespace {

constexpr std::string_view kCacheStart = "[START]";
constexpr std::string_view kCacheEnd = "[END]";
constexpr char kUnknownType[] = "Wrong parameter";
constexpr int kManagedAssembly = 0;  // the plug-in only logs it

std::string copyOf(const char* text) { return text != nullptr ? text : std::string(); }

template <typename Function, typename... Arguments>
auto traced(const char* name, Function* function, Arguments... arguments) {
  const TraceSpan span(name);
  return function(arguments...);
}

// The plug-in documents that its placeholders may fail with an exception.
tl::unexpected<Failure> failedCall(const char* call, const std::exception& exception) {
  return fail(kServiceFailed, {std::string(call) + " failed: " + exception.what(),
                               "see that /proc is mounted and descriptors are left (ulimit -n)"});
}

}  // namespace

Expected<void> PluginCalls::initialize() const {
  const RefusalWatch watch("plugin_initialize", *target_);
  const TraceSpan span("plugin_initialize");
  library_.initialize(target_->type.c_str());
  // The plug-in's results never tell of a failure: its log does.
  if (workstation::lastErrorMessage().find(kUnknownType) == std::string::npos) return {};
  return fail(kUsage, {"the plug-in does not know the application type '" + target_->type + "'",
                       "name one that it does, such as --type inhouse"});
}

Expected<PluginLists> PluginCalls::lists() const try {
  PluginLists lists;
  if (const char* const tpa = traced("plugin_get_tpa", library_.getTpa)) lists.tpa = tpa;
  lists.dllPath = copyOf(traced("plugin_get_dll_path", library_.getDllPath));
  lists.nativePath =
      copyOf(traced("plugin_get_native_dll_searching_path", library_.getNativeDllSearchingPath));
  lists.extraPath = copyOf(traced("plugin_get_extra_dll_path", library_.getExtraDllPath));
  return lists;
} catch (const std::exception& exception) {
  return failedCall("a list of the plug-in", exception);
}

bool PluginCalls::validate(const std::string& path) const {
  return library_.validateDll(kManagedAssembly, path.c_str()) == 1;
}

void PluginCalls::setRuntime(const Runtime& runtime) const {
  traced("plugin_set_coreclr_info", library_.setCoreclrInfo, runtime.host(), runtime.domain(),
         runtime.createDelegate());
}

void PluginCalls::preload() const { traced("plugin_preload", library_.preload); }
void PluginCalls::beforeExecute() const { traced("plugin_before_execute", library_.beforeExecute); }
void PluginCalls::finalize() const { traced("plugin_finalize", library_.finalize); }

Expected<void> PluginCalls::setApplication() const try {
  const BoostListener listener;
  const RefusalWatch watch("plugin_set_app_info", *target_);
  const TraceSpan span("plugin_set_app_info");
  library_.setAppInfo(target_->application.id.c_str(), target_->exec.c_str());
  return {};
} catch (const std::exception& exception) {
  return failedCall("plugin_set_app_info", exception);
}

void PluginCalls::captureOutput() const {
  traced("plugin_has_log_control", library_.hasLogControl);
  awaitCapturedOutputAtExit();
}

std::string cachedTpa() {
  const std::string content = readWholeFile(device_paths::kTpaCache).value_or("");
  const bool whole =
      content.size() >= kCacheStart.size() + kCacheEnd.size() &&
      content.compare(0, kCacheStart.size(), kCacheStart) == 0 &&
      content.compare(content.size() - kCacheEnd.size(), kCacheEnd.size(), kCacheEnd) == 0;
  if (!whole) return {};
  return content.substr(kCacheStart.size(), content.size() - kCacheStart.size() - kCacheEnd.size());
}

}  // namespace quillon::host
