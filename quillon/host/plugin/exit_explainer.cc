#include "quillon/host/plugin/exit_explainer.h"

#include <cstdlib>
#include <string>

#include "quillon/base/terminal.h"
#include "workstation/last_errors.h"

namespace quillon::host {
namespace {

// For the exit handler, which takes no arguments.
const char* g_call = nullptr;
const LaunchTarget* g_target = nullptr;

void explainExit() {
  if (g_call == nullptr) {
    return;
  }
  const std::string message = workstation::lastErrorMessage();
  const std::string reason = message.empty() ? "it logged no error" : "it logged: " + message;
  tell({std::string(g_call) + " ended the launch of '" + g_target->application.id + "'; " + reason,
        remedyForRefusal(message, *g_target)});
}

}  // namespace

ExitExplainer::ExitExplainer(const char* call, const LaunchTarget& target) {
  [[maybe_unused]] static const int registered = std::atexit(explainExit);
  g_target = &target;
  g_call = call;
}

ExitExplainer::~ExitExplainer() { g_call = nullptr; }

}  // namespace quillon::host
