#include "bench/launch/place.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "bench/launch/one_run.h"
#include "tools/device/device_root.h"

namespace quillon::bench {
namespace {

struct Request {
  std::size_t contender;
  Task task;
};

// Ends with the socket's other end.
[[noreturn]] void serve(const std::vector<Contender>& contenders, int socket) {
  Request request{};
  while (read(socket, &request, sizeof request) == sizeof request) {
    const Run run = runOnce(contenders[request.contender], request.task);
    if (write(socket, &run, sizeof run) != sizeof run) break;
  }
  _exit(0);
}

void enterOrEnd(const std::filesystem::path& directory,
                const std::vector<std::filesystem::path>& visible) {
  device::EnterOptions options;
  options.visible = visible;
  if (const auto entered = device::enter(directory, options); !entered) {
    std::fprintf(stderr, "bench: %s; %s\n", entered.error().what.c_str(),
                 entered.error().remedy.c_str());
    _exit(1);
  }
}

}  // namespace

Place::Place(const std::vector<Contender>& contenders, const std::filesystem::path& device,
             const std::vector<std::filesystem::path>& visible) {
  std::array<int, 2> ends{-1, -1};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) return;
  process_ = fork();
  if (process_ == 0) {
    close(ends[0]);
    if (!device.empty()) enterOrEnd(device, visible);
    serve(contenders, ends[1]);
  }
  close(ends[1]);
  socket_ = ends[0];
}

Place::~Place() {
  close(socket_);
  waitpid(process_, nullptr, 0);
}

Run Place::run(std::size_t contender, Task task) const {
  const Request request{contender, task};
  Run run;
  if (write(socket_, &request, sizeof request) != sizeof request ||
      read(socket_, &run, sizeof run) != sizeof run) {
    run.ready = false;
  }
  return run;
}

}  // namespace quillon::bench
