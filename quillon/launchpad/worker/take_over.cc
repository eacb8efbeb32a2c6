#include "quillon/launchpad/worker/take_over.h"

#include <sys/stat.h>
#include <unistd.h>

#include "quillon/base/terminal.h"
#include "quillon/device/working_directory.h"
#include "quillon/host/application/working_directory.h"
#include "quillon/launchpad/worker/descriptor_numbers.h"
#include "quillon/launchpad/worker/process_setup.h"
#include "workstation/log_config.h"

namespace quillon::launchpad {
namespace {

// The descriptors of the launch were received at low numbers, which the application needs.
Expected<void> takeOverInherited(HandOver& handOver, Descriptor& client) {
  if (handOver.inherited.empty()) {
    return {};
  }
  RETURN_IF_FAILED(raise(client));
  RETURN_IF_FAILED(raise(handOver.logFile));
  for (Descriptor& descriptor : handOver.standard) {
    RETURN_IF_FAILED(raise(descriptor));
  }
  for (Descriptor& descriptor : handOver.inherited) {
    RETURN_IF_FAILED(raise(descriptor));
  }
  return duplicateTo(handOver.inheritedDescriptors, handOver.inherited);
}

}  // namespace

Expected<void> takeOverDescriptors(HandOver& handOver, const StdioPlaceholders& stdio,
                                   Descriptor& client) {
  RETURN_IF_FAILED(takeOverInherited(handOver, client));
  for (int which = STDIN_FILENO; which <= STDERR_FILENO; ++which) {
    stdio.redirect(which, handOver.standard[static_cast<size_t>(which)].get());
  }
  moveTerminal(handOver.standard[STDERR_FILENO].get());
  workstation::LogConfig log = handOver.log;
  log.descriptor = handOver.logFile.release();
  workstation::useLog(log);
  return {};
}

void takeOverProcessState(const HandOver& handOver, const Limits& limits,
                          const host::LaunchTarget& target) {
  umask(handOver.umask);
  ignoreSignals(handOver.ignoredSignals);
  adoptLimits(limits);
  if (!device::changeTo(handOver.workingDirectory)) {
    host::useOwnFolder(target, handOver.workingDirectory.path);
  }
}

}  // namespace quillon::launchpad
