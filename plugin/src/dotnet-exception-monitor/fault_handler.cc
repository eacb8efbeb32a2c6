#include "plugin/src/dotnet-exception-monitor/fault_handler.h"

#include <cerrno>
#include <cstddef>

#include "plugin/src/dotnet-exception-monitor/exception_monitor.h"
#include "plugin/src/dotnet-signal-handler/decimal_text.h"
#include "plugin/src/plugin-util/app_identity.h"
#include "plugin/src/plugin-util/published_app_id.h"
#include "util/log/log.h"

struct sigaction sig_segv_for_exception_new = {};
struct sigaction sig_segv_for_exception_old = {};
std::int32_t exception_limit_for_sec = 0;
std::int32_t exception_limit_count = 0;
std::int32_t exception_count = 0;
std::time_t last_exception_time = 0;

namespace {

constexpr std::size_t kReportSize = 100;

const char* appId() {
  const char* const published = publishedAppId();
  return published != nullptr ? published : g_appID.c_str();
}

void sendReport() {
  BoundedString<kReportSize> report;
  report.append("[");
  report.append(appId());
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

}  // namespace

void fault_handler::onSigsegvForException(int sig, siginfo_t* info, void* context) {
  const int error = errno;
  sendMessageToDlogError("onSigsegvForException!!\n");
  countFault();
  errno = error;
  callPreviousHandler(sig, info, context);
}
