#include "quillon/host/side_thread.h"

#include <pthread.h>
#include <sched.h>

#include <system_error>

namespace quillon::host {
namespace {

// A thread that waits to run is moved at once, and stays when it may go back.
void moveAside(pthread_t thread) {
  cpu_set_t allowed;
  if (pthread_getaffinity_np(thread, sizeof allowed, &allowed) != 0) return;
  cpu_set_t others = allowed;
  CPU_CLR(static_cast<size_t>(sched_getcpu()), &others);
  if (CPU_COUNT(&others) == 0) return;
  pthread_setaffinity_np(thread, sizeof others, &others);
  pthread_setaffinity_np(thread, sizeof allowed, &allowed);
}

}  // namespace

SideThread::SideThread(const std::function<void()>& work) {
  try {
    thread_ = std::thread(work);
  } catch (const std::system_error&) {
    work();
    return;
  }
  moveAside(thread_.native_handle());
}

SideThread::~SideThread() {
  if (thread_.joinable()) thread_.join();
}

}  // namespace quillon::host
