// One message of a SOCK_SEQPACKET socket: kind, bytes and file descriptors.
//
// Thread safety: none. Client, server and worker have one thread while they use messages.
#pragma once

#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "quillon/base/descriptor.h"

namespace quillon::launchpad {

enum class MessageKind : uint32_t {
  // From client to server.
  kLaunch = 1,  // see Request in request.h
  kStop,
  kReload,
  kStatus,
  // From server to client.
  kDeclined,  // see Decline in request.h. The client launches the application itself.
  kTaken,     // see TakenReply in request.h
  kEnded,     // bytes: the ExitState of the worker
  kAnswer,    // bytes: for kStatus, see status.h
  // From server to worker.
  kAssign,  // see Assignment in request.h
  // From client to worker.
  kHandOver,  // see hand_over.h
  // From worker to client.
  kTakenOver,  // the worker has the whole launch: its exit state is the result of the launch
  // From worker to server.
  kReady,  // bytes: number memory in KiB. The worker waits for a launch
  // From worker to client and server.
  kStarted,  // the worker runs the application's Main next; for the server, see request.h
  // From worker to server.
  kUnsuitable,  // nothing can be prepared: the plug-in does not know the application type, or the
                // application that the worker should know needs a launch of its own
  // From client to server.
  kDirect,  // bytes: text application, text reason why the client launches it itself
  // From server to worker.
  kNoted,  // after kAssign: the server has checked the launch and noted the package of the process,
           // so that the plug-in may be called; see request.h
  // From server to client, before kTaken.
  kConnection,  // see Connection in request.h
};

// Bytes that may hold the arguments or the environment of an application. They are overwritten with
// zeros before their memory is freed, so that no later use of the memory shows them.
class SensitiveBytes {
 public:
  SensitiveBytes() = default;
  SensitiveBytes(std::string_view bytes) : bytes_(bytes.begin(), bytes.end()) {}
  explicit SensitiveBytes(size_t size) : bytes_(size) {}
  ~SensitiveBytes();
  SensitiveBytes(SensitiveBytes&& other) noexcept { bytes_.swap(other.bytes_); }
  SensitiveBytes& operator=(SensitiveBytes&& other) noexcept {
    bytes_.swap(other.bytes_);
    return *this;
  }
  SensitiveBytes(const SensitiveBytes&) = delete;
  SensitiveBytes& operator=(const SensitiveBytes&) = delete;

  [[nodiscard]] std::string_view view() const { return {bytes_.data(), bytes_.size()}; }
  [[nodiscard]] char* data() { return bytes_.data(); }

 private:
  std::vector<char> bytes_;
};

struct Message {
  MessageKind kind{};
  SensitiveBytes bytes;
  std::vector<Descriptor> descriptors;
};

inline constexpr size_t kMaxDescriptors = 32;
inline constexpr size_t kMaxMessageSize = 64 * 1024;  // including the kind

// Two connected sockets. Both are invalid if no descriptor is available.
std::pair<Descriptor, Descriptor> makeSocketPair();

// Sends a message. Never blocks. Returns false if the peer is gone or the socket cannot take the
// message now. An empty socket can take every message.
bool sendMessage(int socket, MessageKind kind, std::string_view bytes = {},
                 const std::vector<int>& descriptors = {});

enum class Received { kMessage, kNothingYet, kEnd };

// Receives one message. Blocks until one arrives, unless the socket is nonblocking. Returns kEnd if
// the peer is gone or has sent malformed data.
Received receiveMessage(int socket, Message& message);

// The same, but never blocks.
Received receiveMessageNow(int socket, Message& message);

// The same as receiveMessageNow(), but a message with descriptors is malformed. The process never
// holds such descriptors.
Received receiveBytesNow(int socket, Message& message);

}  // namespace quillon::launchpad
