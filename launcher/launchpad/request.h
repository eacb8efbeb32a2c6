// What an asking command wants launched, and all of itself that the application is to have.
#pragma once

#include <sys/types.h>
#include <workstation/log_handover.h>

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "launcher/launch_options.h"
#include "launcher/launchpad/limits.h"
#include "launcher/launchpad/packet.h"
#include "launcher/launchpad/process_shape.h"

namespace quillon::launchpad {

struct Request {
  std::string appId;
  std::optional<std::string> type;
  std::optional<std::string> exec;
  bool raw = false;  // the application's output is the asking command's own
  std::vector<std::string> arguments;
  std::vector<std::string> environment;  // "NAME=VALUE"
  std::string workingDirectory;          // empty: it has none that can be named
  mode_t umask = 0;
  Limits limits;
  ProcessShape shape;
  workstation::LogHandover log;  // without its descriptor
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
  Descriptor began;  // see tellBegun()
  std::vector<Descriptor> others;
};

// The descriptors above the standard ones that are not closed on exec.
std::vector<int> inheritedDescriptors();

// A request of this process's for the launch that `options` asks for. Call before the process
// enters a device root. program: see currentShape().
Request makeRequest(const launcher::LaunchOptions& options,
                    const std::filesystem::path& program = kOwnProgram);

// Sends a request with this process's descriptors, its log, and `began`, an eventfd(2) that is
// counted up when the application begins.
bool sendRequest(int socket, const Request& request, int began);

// Tells through a request's `began` that the application begins.
void tellBegun(int began);
// Whether it was told. Does not wait.
bool wasToldBegun(int began);

// A request that arrived: its text stays in its memory file, to be handed on with the rest.
struct ArrivedRequest {
  Request request;
  Packet packet;
};

// Empty where the packet holds no request.
std::optional<ArrivedRequest> openRequest(Packet packet);

// The descriptors behind a request's own in a packet, as `there`, the number that came with the
// request, tells them apart.
RequestDescriptors takeDescriptors(std::vector<Descriptor>& descriptors, uint64_t there);

// The text of a request's memory file; empty where it is none. Never waits for anybody: the file
// has to be one that nobody can change any more.
std::string textOf(int memoryFile);

// The request in a text; empty where there is none.
std::optional<Request> decodeRequest(const std::string& text);

}  // namespace quillon::launchpad
