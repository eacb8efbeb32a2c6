// A launch request on its way from the client to the server to a worker.
//
//   client   makeRequest(), sendRequest()
//   server   ReceivedRequest::parse(), assign()
//   worker   parseAssignment()
//
// docs/launchpad.md has the format.
#pragma once

#include <sys/types.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "quillon/host/application/options.h"
#include "quillon/host/application/target.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/state/limits.h"
#include "quillon/launchpad/state/proc_self.h"
#include "quillon/launchpad/state/process_state.h"
#include "workstation/log_config.h"

namespace quillon::launchpad {

// The application to launch and the process state of the client that the application gets.
struct Request {
  std::string appId;
  std::optional<std::string> type;
  std::optional<std::string> exec;
  bool raw = false;  // the application writes to the client's standard output and error
  Limits limits;
  ProcessState processState;  // declared
  // Numbers of the client's descriptors above 2 that a program keeps across exec().
  std::vector<int> inheritedDescriptors;
  std::vector<std::string> arguments;
  // "NAME=VALUE". Filled by parseAssignment() only: sendRequest() encodes the environment of the
  // calling process without a copy of it.
  std::vector<std::string> environment;
  std::string workingDirectory;  // empty if the client's has no path
  mode_t umask = 0;
  workstation::LogConfig log;  // without its descriptor
};

// A worker takes over at most this many inherited descriptors, none below this number: lower
// numbers may be in use in the worker.
inline constexpr size_t kMaxInheritedDescriptors = 24;
inline constexpr int kMinInheritedDescriptor = 80;

// The client's descriptors. Each is invalid if the client does not have it.
struct RequestDescriptors {
  std::array<Descriptor, 3> standard;
  Descriptor log;
  Descriptor started;  // see signalStarted()
  std::vector<Descriptor> inherited;
};

// The request of the calling process for the launch that `options` describes. program: see
// declaredStateOf().
Request makeRequest(const host::LaunchOptions& options, const ProcSelf& process,
                    const std::string& program = {});

// Sends a request with the environment, the descriptors and the log of the calling process.
//
// started  an eventfd(2), see signalStarted()
bool sendRequest(int socket, const Request& request, int started);

// Reports to the client through the request's eventfd that the application starts.
void signalStarted(int started);
// Whether signalStarted() was called. Does not block.
bool wasStarted(int started);

// A request as the server received it.
class ReceivedRequest {
 public:
  // Returns nullopt if the message is malformed or does not carry the descriptors that it names.
  static std::optional<ReceivedRequest> parse(Message message);

  // Without the fields from `arguments` on, which only a worker decodes.
  [[nodiscard]] const Request& request() const { return request_; }

  // Forwards the request to a worker. May be called again for another worker.
  [[nodiscard]] bool assign(int socket, const host::LaunchTarget& target) const;

 private:
  ReceivedRequest(Message message, Request request)
      : message_(std::move(message)), request_(std::move(request)) {}

  Message message_;
  Request request_;
};

// A request as a worker receives it, with the application that the server found for it.
struct Assignment {
  host::LaunchTarget target;  // without privileges, metadata and other applications
  Request request;
  RequestDescriptors descriptors;
};

// Returns nullopt if the message is malformed.
std::optional<Assignment> parseAssignment(Message message);

// The server's reply to a request before it assigns the request to a worker (kTaken).
struct TakenReply {
  pid_t worker = 0;
  Descriptor pidfd;
};
bool sendTaken(int socket, pid_t worker, int pidfd);
TakenReply parseTaken(Message message);

}  // namespace quillon::launchpad
