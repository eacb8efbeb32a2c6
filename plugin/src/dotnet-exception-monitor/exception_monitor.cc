#include "plugin/src/dotnet-exception-monitor/exception_monitor.h"

#include <new>

#include "plugin/src/dotnet-exception-monitor/fault_handler.h"
#include "quillon_tv_plugin.h"
#include "util/log/log.h"

namespace {

using fault_handler::onSigsegvForException;

bool isMonitor(const struct sigaction& action) {
  return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == onSigsegvForException;
}

// Saves the current action before the monitor is installed, so that a fault immediately afterwards
// is passed on correctly. Returns false if the monitor is already installed; the monitor must not
// be its own previous handler.
bool keepPrevious() {
  struct sigaction current = {};
  if (sigaction(SIGSEGV, nullptr, &current) != 0) {
    return true;
  }
  if (!isMonitor(current)) {
    sig_segv_for_exception_old = current;
  }
  return !isMonitor(current);
}

bool install() {
  sig_segv_for_exception_new.sa_sigaction = onSigsegvForException;
  sigemptyset(&sig_segv_for_exception_new.sa_mask);
  sig_segv_for_exception_new.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
  return sigaction(SIGSEGV, &sig_segv_for_exception_new,
                   keepPrevious() ? &sig_segv_for_exception_old : nullptr) == 0;
}

}  // namespace

void enable_exception_monitor(int limitForSec, int limitCount) try {
  QLOG_SCOPE();
  QLOG_INFO("enable_exception_monitor: %d, %d", limitForSec, limitCount);
  exception_limit_for_sec = limitForSec;
  exception_limit_count = limitCount;
  last_exception_time = time(nullptr);
  if (install()) {
    QLOG_INFO("register signal success!!!");
  } else {
    QLOG_INFO("register signal error!!!");
  }
} catch (const std::bad_alloc&) {
  QLOG_ERROR("Out of memory");
}
