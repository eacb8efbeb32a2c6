#include "quillon/host/background_task.h"

#include <pthread.h>
#include <sched.h>

#include <system_error>

#include "quillon/base/processor.h"

namespace quillon::host {
namespace {

void moveAway(pthread_t thread) {
  cpu_set_t allowed;
  if (pthread_getaffinity_np(thread, sizeof allowed, &allowed) == 0) {
    moveToOtherProcessor(allowed, [thread](const cpu_set_t& affinity) {
      pthread_setaffinity_np(thread, sizeof affinity, &affinity);
    });
  }
}

}  // namespace

BackgroundTask::BackgroundTask(const std::function<void()>& work) {
  try {
    thread_ = std::thread(work);
  } catch (const std::system_error&) {
    work();
    return;
  }
  moveAway(thread_.native_handle());
}

BackgroundTask::~BackgroundTask() {
  if (thread_.joinable()) {
    thread_.join();
  }
}

}  // namespace quillon::host
