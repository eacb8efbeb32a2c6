// One message of a SOCK_SEQPACKET socket: its kind, its bytes, and descriptors.
//
// Thread safety: none is needed; every process of the launch pad has one thread while it speaks.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "quillon/base/descriptor.h"

namespace quillon::launchpad {

enum class MessageKind : uint32_t {
  // From the asking command.
  kLaunch = 1,  // see request.h
  kStop,
  kReload,
  kStatus,
  // To the asking command.
  kDeclined,  // bytes: why; launch directly
  kTaken,     // descriptor: pidfd of the process that will be, or is, the application
  kEnded,     // bytes: an ExitState
  kAnswer,    // bytes: lines of text for a person
  // To a prepared process; same descriptors as kLaunch. Bytes: an Assignment.
  kAssign,
  // From a prepared process.
  kReady,      // it waits for a launch
  kTakenOver,  // it has all of the launch; how it ends from here on is the launch's result
  kStarted,    // the next thing that it does is to run the application
};

struct Message {
  MessageKind kind{};
  std::string bytes;
  std::vector<Descriptor> descriptors;
};

inline constexpr size_t kMaxDescriptors = 32;
inline constexpr size_t kMaxMessageSize = 64 * 1024;  // its kind and its bytes

// False where the other side is gone, or the socket cannot take the message. Waits for room unless
// the socket does not block.
bool sendMessage(int socket, MessageKind kind, std::string_view bytes = {},
                 const std::vector<int>& descriptors = {});

enum class Received { kMessage, kNothingYet, kEnd };

// Receives one message, waiting for it unless the socket does not block. kEnd: the other side is
// gone, or what it sent is no message of this kind.
Received receiveMessage(int socket, Message& packet);

// The same, without waiting.
Received receiveMessageNow(int socket, Message& packet);

}  // namespace quillon::launchpad
