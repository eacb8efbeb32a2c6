// A long-lived process that requests launches from a launch pad, as the launcher of a device does.
//
// usage: launch_asker QUILLON DEVICE APPID, with a SOCK_SEQPACKET socket as file descriptor 3
//
// Each message (kLaunch) has one byte, the number of arguments "wait" for the application, and two
// descriptors: the application's input and its output. The answer (kAnswer) has the time of the
// request, in nanoseconds of CLOCK_MONOTONIC, after the application has ended.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <string_view>

#include "bench/launch/asker.h"
#include "quillon/launchpad/client/client.h"
#include "quillon/launchpad/protocol/message.h"

namespace {

using namespace quillon;

void setStreams(int input, int output) {
  dup2(input, STDIN_FILENO);
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
}

// Returns the time of the request.
int64_t ask(host::LaunchOptions options, launchpad::Message& request, const char* quillon) {
  setStreams(request.descriptors[0].get(), request.descriptors[1].get());
  request.descriptors.clear();
  options.arguments.assign(static_cast<size_t>(request.bytes.view()[0]), "wait");
  const auto start = std::chrono::steady_clock::now().time_since_epoch();
  // A declined launch leaves no output, which the benchmark reports.
  static_cast<void>(launchpad::requestLaunch(options, quillon));
  return std::chrono::nanoseconds(start).count();
}

}  // namespace

int main(int argc, char** argv) {
  const int socket = quillon::bench::kAskerSocket;
  if (argc != 4 || fcntl(socket, F_SETFD, FD_CLOEXEC) != 0) {
    return 100;
  }
  const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
  host::LaunchOptions options;
  options.device = argv[2];
  options.appId = argv[3];
  options.raw = true;
  launchpad::Message request;
  while (launchpad::receiveMessage(socket, request) == launchpad::Received::kMessage &&
         request.descriptors.size() == 2 && request.bytes.view().size() == 1) {
    const int64_t start = ask(options, request, argv[1]);
    setStreams(nothing.get(), nothing.get());  // closes the benchmark's pipe
    const std::string_view bytes(reinterpret_cast<const char*>(&start), sizeof start);
    if (!launchpad::sendMessage(socket, launchpad::MessageKind::kAnswer, bytes)) {
      break;
    }
  }
  return 0;
}
