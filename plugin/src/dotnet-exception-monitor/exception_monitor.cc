#include "plugin/src/dotnet-exception-monitor/exception_monitor.h"

#include <cerrno>
#include <cstddef>

#include "plugin/src/dotnet-signal-handler/decimal_text.h"
#include "plugin/src/plugin-util/app_identity.h"
#include "quillon_tv_plugin.h"
#include "util/log/log.h"

struct sigaction sig_segv_for_exception_new = {};
struct sigaction sig_segv_for_exception_old = {};
std::int32_t exception_limit_for_sec = 0;
std::int32_t exception_limit_count = 0;
std::int32_t exception_count = 0;
std::time_t last_exception_time = 0;

namespace {

constexpr std::size_t kReportSize = 100;

void sendReport() {
  BoundedString<kReportSize> report;
  report.append("[");
  report.append(g_appID.c_str());
  report.append("] Exception Limit exceed!!! (");
  report.append(exception_count);
  report.append(" / ");
  report.append(exception_limit_count);
  report.append(")\n");
  sendMessageToDlogError(report.c_str());
}

void countFault() {
  const std::time_t now = time(nullptr);
  if (difftime(now, last_exception_time) > exception_limit_for_sec) {
    last_exception_time = now;
    exception_count = 1;
  } else if (++exception_count >= exception_limit_count) {
    sendReport();
  }
}

// The previous action is called without a check for SIG_DFL and SIG_IGN, because the monitor runs
// in front of a real handler, usually that of the runtime. Without one, the call itself ends the
// process with the same signal.
void callPreviousHandler(int sig, siginfo_t* info, void* context) {
  const struct sigaction& previous = sig_segv_for_exception_old;
  if ((previous.sa_flags & SA_SIGINFO) != 0) {
    previous.sa_sigaction(sig, info, context);
  } else {
    previous.sa_handler(sig);
  }
}

void onSigsegvForException(int sig, siginfo_t* info, void* context) {
  const int error = errno;
  sendMessageToDlogError("onSigsegvForException!!\n");
  countFault();
  errno = error;
  callPreviousHandler(sig, info, context);
}

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

void enable_exception_monitor(int limitForSec, int limitCount) {
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
}
