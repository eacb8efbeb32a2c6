#include "log/log_failure.h"

#include "platform/dlog.h"

namespace quillon::workstation {

void logFailure(const Failure& failure) {
  __dlog_print(0, DLOG_ERROR, "WORKSTATION", "%s; %s\n", failure.what.c_str(),
               failure.remedy.c_str());
}

}  // namespace quillon::workstation
