#include "plugin/src/dotnet-signal-handler/signal_handler.h"

#include "plugin/src/dotnet-signal-handler/crash_handlers.h"
#include "util/log/log.h"

namespace {

void fill(struct sigaction& action, void (*handler)(int)) {
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;
}

}  // namespace

int registerSignalHandler() {
  QLOG_DEBUG("Register signal handler");
  signal(SIGTERM, crash_handlers::sigtermHandler);
  fill(sig_abrt_new, crash_handlers::onSigabrt);
  fill(sig_segv_new, crash_handlers::onSigsegv);
  fill(sig_trap_new, crash_handlers::onSigtrap);
  if (sigaction(SIGABRT, &sig_abrt_new, &sig_abrt_old) < 0) {
    QLOG_ERROR("Fail to sigaction(SIGABRT, &sig_abrt_new, &sig_abrt_old)");
  }
  if (sigaction(SIGSEGV, &sig_segv_new, &sig_segv_old) < 0) {
    QLOG_ERROR("Fail to sigaction(SIGSEGV, &sig_segv_new, &sig_segv_old)");
  }
  const int result = sigaction(SIGTRAP, &sig_trap_new, &sig_trap_old);
  if (result < 0) {
    QLOG_ERROR("Fail to sigaction(SIGTRAP, &sig_trap_new, &sig_trap_old)");
  }
  return result;
}
