// What the application gets from the client, in one message from the client to the worker.
//
//   client   EncodedHandOver::send()
//   worker   parseHandOver()
//
// docs/launchpad.md has the format.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "quillon/base/descriptor.h"
#include "quillon/device/working_directory.h"
#include "quillon/launchpad/protocol/message.h"
#include "quillon/launchpad/state/proc_self.h"
#include "workstation/log_config.h"

namespace quillon::launchpad {

// A worker takes over at most this many inherited descriptors, with numbers below this one: its own
// descriptors begin there.
inline constexpr size_t kMaxInheritedDescriptors = 24;
inline constexpr int kMinOwnDescriptor = 200;

// The limit of open files that a worker needs, for its own and a few more.
inline constexpr unsigned kMinDescriptorLimit = kMinOwnDescriptor + 100;

struct HandOver {
  std::vector<std::string> arguments;
  std::vector<std::string> environment;  // "NAME=VALUE"
  device::WorkingDirectory workingDirectory;
  mode_t umask = 0;
  uint64_t ignoredSignals = 0;  // see ProcSelf::signals()
  // Numbers of the client's descriptors above 2 that a program keeps across exec().
  std::vector<int> inheritedDescriptors;
  workstation::LogConfig log;  // without its descriptor

  // Each is invalid if the client does not have it.
  std::array<Descriptor, 3> standard;
  Descriptor logFile;
  std::vector<Descriptor> inherited;
};

// The hand-over of the calling process, ready to be sent.
class EncodedHandOver {
 public:
  // Encodes the environment and the working directory of the calling process. It sends descriptors
  // of this process, which must stay open.
  //
  // log        of the process
  // inherited  the process's descriptors above 2 that the application gets
  EncodedHandOver(const std::vector<std::string>& arguments, const ProcSelf& process,
                  const workstation::LogConfig& log, const std::vector<int>& inherited);

  // May be called again for another worker.
  [[nodiscard]] bool send(int worker) const;

 private:
  std::string bytes_;
  std::vector<int> descriptors_;
  Descriptor file_;  // a memory file, if the bytes are too long for a message
};

// Returns nullopt if the message is malformed or does not carry the descriptors that it names.
std::optional<HandOver> parseHandOver(Message message);

}  // namespace quillon::launchpad
