#include "quillon/host/plugin/plugin_calls.h"

#include <exception>
#include <optional>

#include "device_paths.h"
#include "quillon/base/shell_word.h"
#include "quillon/base/terminal.h"
#include "quillon/base/trace_span.h"
#include "quillon/host/plugin/boost_listener.h"
#include "quillon/host/plugin/captured_output.h"
#include "quillon/host/plugin/exit_explainer.h"
#include "quillon/host/plugin/launch_calls.h"
#include "workstation/inside_device.h"
#include "workstation/last_errors.h"

namespace quillon::host {
namespace {

constexpr char kUnknownType[] = "Wrong parameter";
constexpr char kNoPreload[] = "Launch prepared function is fail";
constexpr int kManagedAssembly = 0;  // the plug-in only logs it

std::string copyOf(const char* text) { return text != nullptr ? text : std::string(); }

template <typename Function, typename... Arguments>
auto traced(LaunchCall call, Function* function, Arguments... arguments) {
  const TraceSpan span(nameOf(call));
  return function(arguments...);
}

// The public header of the plug-in documents the exception: its placeholders may fail.
tl::unexpected<Failure> failedCall(const char* call, const std::exception& exception) {
  return fail(kServiceFailed, {std::string(call) + " failed: " + exception.what(),
                               "see that /proc is mounted and descriptors are left (ulimit -n)"});
}

}  // namespace

Expected<void> PluginCalls::initialize() const {
  const ExitExplainer explainer(nameOf(LaunchCall::kInitialize), *target_);
  traced(LaunchCall::kInitialize, library_.initialize, target_->type.c_str());
  // The plug-in reports failures in its log only.
  if (workstation::lastErrorMessage().find(kUnknownType) == std::string::npos) {
    return {};
  }
  return fail(kUsage, {"the plug-in does not know the application type '" + target_->type + "'",
                       "--type inhouse, inhouseapitest, dotnet or normal"});
}

Expected<PluginLists> PluginCalls::lists() const try {
  PluginLists lists;
  if (const char* const tpa = traced(LaunchCall::kGetTpa, library_.getTpa)) {
    lists.tpa = tpa;
  }
  lists.dllPath = copyOf(traced(LaunchCall::kGetDllPath, library_.getDllPath));
  lists.nativePath =
      copyOf(traced(LaunchCall::kGetNativeDllSearchingPath, library_.getNativeDllSearchingPath));
  lists.extraPath = copyOf(traced(LaunchCall::kGetExtraDllPath, library_.getExtraDllPath));
  return lists;
} catch (const std::exception& exception) {
  return failedCall("a list of the plug-in", exception);
}

bool PluginCalls::validate(const std::string& path) const {
  return library_.validateDll(kManagedAssembly, path.c_str()) == 1;
}

void PluginCalls::setRuntime(const Runtime& runtime) const {
  traced(LaunchCall::kSetCoreclrInfo, library_.setCoreclrInfo, runtime.host(), runtime.domain(),
         runtime.createDelegate());
}

// The plug-in's message has only the runtime's code for a missing file.
void PluginCalls::preload() const {
  traced(LaunchCall::kPreload, library_.preload);
  if (workstation::lastErrorMessage().find(kNoPreload) != std::string::npos) {
    tell({std::string("the device root has no assembly '") + device_paths::kPreload +
              "', or it cannot be loaded, so nothing was preloaded",
          "copy it there: quillon device init " + shellWord(workstation::pathOfDevice())});
  }
}

Expected<void> PluginCalls::setApplication(bool hasBoostListener) const try {
  std::optional<BoostListener> listener;
  if (!hasBoostListener) {
    listener.emplace();
  }
  const ExitExplainer explainer(nameOf(LaunchCall::kSetAppInfo), *target_);
  traced(LaunchCall::kSetAppInfo, library_.setAppInfo, target_->application.id.c_str(),
         target_->exec.c_str());
  return {};
} catch (const std::exception& exception) {
  return failedCall(nameOf(LaunchCall::kSetAppInfo), exception);
}

void PluginCalls::captureOutput() const {
  traced(LaunchCall::kHasLogControl, library_.hasLogControl);
  drainCapturedOutputAtExit();
}

void PluginCalls::beforeExecute() const {
  traced(LaunchCall::kBeforeExecute, library_.beforeExecute);
}

void PluginCalls::finalize() const { traced(LaunchCall::kFinalize, library_.finalize); }

}  // namespace quillon::host
