#include "quillon/host/plugin/refusal_watch.h"

#include <cstdlib>

#include "quillon/base/terminal.h"
#include "workstation/last_errors.h"

namespace quillon::host {
namespace {

// What an exit handler, which takes no arguments, needs to know.
const char* g_call = nullptr;
const LaunchTarget* g_target = nullptr;

void explainExit() {
  if (g_call == nullptr) return;
  const std::string message = workstation::lastErrorMessage();
  const std::string said = message.empty() ? "it logged no error" : "it logged: " + message;
  tell({std::string(g_call) + " ended the launch of '" + g_target->application.id + "'; " + said,
        remedyForRefusal(message, *g_target)});
}

}  // namespace

RefusalWatch::RefusalWatch(const char* call, const LaunchTarget& target) {
  [[maybe_unused]] static const int registered = std::atexit(explainExit);
  g_target = &target;
  g_call = call;
}

RefusalWatch::~RefusalWatch() { g_call = nullptr; }

}  // namespace quillon::host
