// What an asking command wants launched, and all of itself that the application is to have.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "quillon/host/application/options.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/state/limits.h"
#include "quillon/launchpad/state/proc_self.h"
#include "quillon/launchpad/state/process_state.h"
#include "workstation/log_config.h"

namespace quillon::launchpad {

struct Request {
  std::string appId;
  std::optional<std::string> type;
  std::optional<std::string> exec;
  bool raw = false;  // the application's output is the asking command's own
  std::vector<std::string> arguments;
  std::vector<std::string> environment;  // "NAME=VALUE"; of one that arrived
  std::string workingDirectory;          // empty: it has none that can be named
  mode_t umask = 0;
  Limits limits;
  ProcessState shape;
  workstation::LogConfig log;  // without its descriptor
  // Descriptors besides the standard ones that a program which it became would find, by number.
  std::vector<int> others;
};

// More of them, or lower ones, where a prepared process has its own, are not handed over.
inline constexpr size_t kMostOthers = 24;
inline constexpr int kLowestOther = 80;

// The descriptors that go with a request, each invalid where the asking command has none.
struct RequestDescriptors {
  std::array<Descriptor, 3> standard;
  Descriptor log;
  Descriptor began;  // see signalStarted()
  std::vector<Descriptor> others;
};

// A request of this process's for the launch that `options` asks for. program: see
// processStateOf().
Request makeRequest(const host::LaunchOptions& options, const ProcSelf& process,
                    const std::string& program = {});

// Sends a request with this process's environment and descriptors, its log, and `began`, an
// eventfd(2) that is counted up when the application begins.
bool sendRequest(int socket, const Request& request, int began);

// Tells through a request's `began` that the application begins.
void signalStarted(int began);
// Whether it was told. Does not wait.
bool wasStarted(int began);

// A request that arrived, as far as the launch pad needs it: what else it says stays in its packet,
// to be handed on.
struct ArrivedRequest {
  Request request;
  Message packet;
};

// Empty where the packet holds no request.
std::optional<ArrivedRequest> openRequest(Message packet);

// The descriptors of a packet without the request's memory file, as `there`, the number that came
// with the request, tells them apart.
RequestDescriptors takeDescriptors(std::vector<Descriptor>& descriptors, uint64_t there);

// The text of a request that came with `descriptors` and `there`: `inMessage`, unless it was too
// long for a message.
std::string textOf(std::string_view inMessage, uint64_t there,
                   const std::vector<Descriptor>& descriptors);

// The text of a memory file; empty where it is none. Never waits for anybody: the file has to be
// one that nobody can change any more.
std::string textOf(int memoryFile);

// The request in a text; empty where there is none.
std::optional<Request> decodeRequest(const std::string& text);

}  // namespace quillon::launchpad
