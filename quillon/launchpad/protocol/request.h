// The messages about a launch between client, server and worker, in their order:
//
//   server to client   sendConnection(), parseConnection()
//   client to server   sendRequest(), parseRequest()
//   server to client   sendTaken(), parseTaken()
//   server to worker   sendAssignment(), parseAssignment()
//   client to worker   see hand_over.h
//   server to worker   sendNoted(), parseNoted()
//   worker to server   sendStarted(), parseStarted()
//
// docs/launchpad.md has the format.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "quillon/host/application/options.h"
#include "quillon/host/application/target.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/state/limits.h"
#include "quillon/launchpad/state/proc_self.h"
#include "quillon/launchpad/state/process_state.h"

namespace quillon::launchpad {

// What the server must know in order to choose a worker. The arguments, the environment and the
// descriptors of the application are not part of it: they never enter the server's memory, which
// later workers inherit.
struct Request {
  std::string appId;
  std::optional<std::string> type;
  std::optional<std::string> exec;
  bool raw = false;           // the application writes to the client's standard output and error
  ProcessState processState;  // declared
};

// The request of the calling process for the launch that `options` describes. program: see
// declaredStateOf().
Request makeRequest(const host::LaunchOptions& options, const ProcSelf& process,
                    const std::string& program = {});

bool sendRequest(int socket, const Request& request);
// Returns nullopt if the message is malformed.
std::optional<Request> parseRequest(const Message& message);

// The server's answer to a request that no worker can serve.
struct Decline {
  std::string reason;
  std::string remedy;
  bool isLaunchable = true;  // false: a direct launch fails too, and reports why
};
bool sendDecline(int socket, const Decline& decline);
// Returns nullopt if the message is malformed.
std::optional<Decline> parseDecline(const Message& message);

// The two ends of a connection between a client and the worker that will have its launch. The
// client sends its hand-over at once, so that the worker finds it. It also has the worker's end, in
// order to take the hand-over back from a server that does not answer.
struct Connection {
  Descriptor client;
  Descriptor worker;
};
bool sendConnection(int socket, const Connection& connection);
// Both ends are invalid if the message is malformed.
Connection parseConnection(Message message);

// The server's answer to a request that a worker serves.
struct TakenReply {
  pid_t worker = 0;
  Descriptor pidfd;
};
bool sendTaken(int socket, pid_t worker, int pidfd);
// The descriptor of the result is invalid if the message is malformed.
TakenReply parseTaken(Message message);

// A launch as a worker receives it, before the client's hand-over.
struct Assignment {
  host::LaunchTarget target;  // without privileges, metadata and other applications
  Limits limits;              // of the client
  Descriptor connection;      // a socket to the client
};
bool sendAssignment(int socket, const host::LaunchTarget& target, const Limits& limits,
                    int connection);
// Returns nullopt if the message is malformed.
std::optional<Assignment> parseAssignment(Message message);

// hasBoostListener  see PluginCalls::setApplication()
bool sendNoted(int socket, bool hasBoostListener);
bool parseNoted(const Message& message);

// The worker's report to the server that the application starts now.
bool sendStarted(int socket);
std::chrono::steady_clock::time_point parseStarted(const Message& message);

}  // namespace quillon::launchpad
