#include "bench/launch/place.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "bench/launch/one_run.h"
#include "quillon/device/device_root.h"

namespace quillon::bench {
namespace {

struct Request {
  std::size_t contender;
  Task task;
};

// Serves requests until the other end of the socket is closed.
void serve(const std::vector<Contender>& contenders, int socket) {
  std::map<std::size_t, Asker> askers;
  const auto askerOf = [&](std::size_t contender) -> const Asker* {
    return contenders[contender].request.asker.empty()
               ? nullptr
               : &askers.try_emplace(contender, contenders[contender]).first->second;
  };
  Request request{};
  while (read(socket, &request, sizeof request) == sizeof request) {
    const Run run =
        runOnce(contenders[request.contender], request.task, askerOf(request.contender));
    if (write(socket, &run, sizeof run) != sizeof run) {
      break;
    }
  }
}

[[noreturn]] void become(const Service& service) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int output = open(service.output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  std::vector<char*> arguments;
  for (const std::string& word : service.command) {
    arguments.push_back(const_cast<char*>(word.c_str()));
  }
  arguments.push_back(nullptr);
  for (const std::string& variable : service.environment) {
    putenv(const_cast<char*>(variable.c_str()));
  }
  execv(arguments[0], arguments.data());
  _exit(127);
}

// A process that runs as long as the object lives.
class RunningService {
 public:
  explicit RunningService(const Service& service) {
    if (service.command.empty()) {
      return;
    }
    process_ = fork();
    if (process_ == 0) {
      become(service);
    }
  }
  ~RunningService() {
    if (process_ < 0) {
      return;
    }
    kill(process_, SIGTERM);
    waitpid(process_, nullptr, 0);
  }
  RunningService(const RunningService&) = delete;
  RunningService& operator=(const RunningService&) = delete;

 private:
  pid_t process_ = -1;
};

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
             const std::vector<std::filesystem::path>& visible, const Service& service) {
  std::array<int, 2> ends{-1, -1};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    return;
  }
  process_ = fork();
  if (process_ == 0) {
    close(ends[0]);
    if (!device.empty()) {
      enterOrEnd(device, visible);
    }
    {
      const RunningService running(service);
      serve(contenders, ends[1]);
    }
    _exit(0);
  }
  close(ends[1]);
  socket_ = ends[0];
}

// Places that were made later have a copy of the socket.
Place::~Place() {
  shutdown(socket_, SHUT_RDWR);
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
