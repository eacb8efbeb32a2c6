#include "quillon/launchpad/protocol/message.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace quillon::launchpad {
namespace {

union Control {
  cmsghdr header;
  char bytes[CMSG_SPACE(kMaxDescriptors * sizeof(int))];
};

void attach(msghdr& message, Control& control, const std::vector<int>& descriptors) {
  if (descriptors.empty()) return;
  const size_t length = descriptors.size() * sizeof(int);
  message.msg_control = control.bytes;
  message.msg_controllen = CMSG_SPACE(length);
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(length);
  std::memcpy(CMSG_DATA(header), descriptors.data(), length);
}

void detach(msghdr& message, std::vector<Descriptor>& descriptors) {
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
       header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
    const size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (size_t i = 0; i < count; ++i) {
      int fd = -1;
      std::memcpy(&fd, CMSG_DATA(header) + i * sizeof fd, sizeof fd);
      descriptors.emplace_back(fd);
    }
  }
}

Received receive(int socket, Message& packet, int flags) {
  // Every process has one thread while it speaks. Only the pages that a message fills are touched.
  static std::array<char, kMaxMessageSize> whole;
  iovec part{whole.data(), whole.size()};
  Control control{};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control.bytes;
  message.msg_controllen = sizeof control.bytes;
  ssize_t length = 0;
  do {
    length = recvmsg(socket, &message, MSG_CMSG_CLOEXEC | flags);
  } while (length < 0 && errno == EINTR);
  if (length < 0 && errno == EAGAIN) return Received::kNothingYet;
  packet = Message();
  if (length >= 0) detach(message, packet.descriptors);
  const bool isComplete = (message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) == 0;
  const bool isPacket = length >= static_cast<ssize_t>(sizeof packet.kind) && isComplete;
  if (isPacket) {
    std::memcpy(&packet.kind, whole.data(), sizeof packet.kind);
    packet.bytes.assign(whole.data() + sizeof packet.kind,
                        static_cast<size_t>(length) - sizeof packet.kind);
  }
  // One application's environment is not for the next one's memory.
  explicit_bzero(whole.data(), static_cast<size_t>(std::max<ssize_t>(length, 0)));
  return isPacket ? Received::kMessage : Received::kEnd;
}
}  // namespace

bool sendMessage(int socket, MessageKind kind, std::string_view bytes,
                 const std::vector<int>& descriptors) {
  const size_t length = sizeof kind + bytes.size();
  if (length > kMaxMessageSize || descriptors.size() > kMaxDescriptors) return false;
  std::array<iovec, 2> parts = {
      {{&kind, sizeof kind}, {const_cast<char*>(bytes.data()), bytes.size()}}};
  Control control{};
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = parts.size();
  attach(message, control, descriptors);
  ssize_t sent = 0;
  do {
    sent = sendmsg(socket, &message, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return sent == static_cast<ssize_t>(length);
}

Received receiveMessage(int socket, Message& packet) { return receive(socket, packet, 0); }

Received receiveMessageNow(int socket, Message& packet) {
  return receive(socket, packet, MSG_DONTWAIT);
}

}  // namespace quillon::launchpad
