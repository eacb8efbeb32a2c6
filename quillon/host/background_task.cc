#include "quillon/host/background_task.h"

#include <pthread.h>
#include <sched.h>

#include <system_error>

namespace quillon::host {
namespace {

// The kernel moves a runnable thread at once when its affinity changes, and does not move it back
// when the affinity allows the old processor again.
void moveToOtherProcessor(pthread_t thread) {
  cpu_set_t allowed;
  if (pthread_getaffinity_np(thread, sizeof allowed, &allowed) != 0) {
    return;
  }
  cpu_set_t others = allowed;
  CPU_CLR(static_cast<size_t>(sched_getcpu()), &others);
  if (CPU_COUNT(&others) == 0) {
    return;
  }
  pthread_setaffinity_np(thread, sizeof others, &others);
  pthread_setaffinity_np(thread, sizeof allowed, &allowed);
}

}  // namespace

BackgroundTask::BackgroundTask(const std::function<void()>& work) {
  try {
    thread_ = std::thread(work);
  } catch (const std::system_error&) {
    work();
    return;
  }
  moveToOtherProcessor(thread_.native_handle());
}

BackgroundTask::~BackgroundTask() {
  if (thread_.joinable()) {
    thread_.join();
  }
}

}  // namespace quillon::host
