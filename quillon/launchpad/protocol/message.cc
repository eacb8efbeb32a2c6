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

void attach(msghdr& header, Control& control, const std::vector<int>& descriptors) {
  if (descriptors.empty()) {
    return;
  }
  const size_t length = descriptors.size() * sizeof(int);
  header.msg_control = control.bytes;
  header.msg_controllen = CMSG_SPACE(length);
  cmsghdr* const rights = CMSG_FIRSTHDR(&header);
  rights->cmsg_level = SOL_SOCKET;
  rights->cmsg_type = SCM_RIGHTS;
  rights->cmsg_len = CMSG_LEN(length);
  std::memcpy(CMSG_DATA(rights), descriptors.data(), length);
}

void detach(msghdr& header, std::vector<Descriptor>& descriptors) {
  for (cmsghdr* rights = CMSG_FIRSTHDR(&header); rights != nullptr;
       rights = CMSG_NXTHDR(&header, rights)) {
    if (rights->cmsg_level != SOL_SOCKET || rights->cmsg_type != SCM_RIGHTS) {
      continue;
    }
    const size_t count = (rights->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (size_t i = 0; i < count; ++i) {
      int fd = -1;
      std::memcpy(&fd, CMSG_DATA(rights) + i * sizeof fd, sizeof fd);
      descriptors.emplace_back(fd);
    }
  }
}

// control  has no room for descriptors if it is null
Received receive(int socket, Message& message, int flags, Control* control) {
  // Static, so that only the pages that a message fills are ever touched.
  static std::array<char, kMaxMessageSize> buffer;
  iovec part{buffer.data(), buffer.size()};
  msghdr header{};
  header.msg_iov = &part;
  header.msg_iovlen = 1;
  if (control != nullptr) {
    header.msg_control = control->bytes;
    header.msg_controllen = sizeof control->bytes;
  }
  ssize_t length = 0;
  // The kernel reports ECONNRESET once if the peer has ended without reading all of our messages.
  // Those that it sent before follow.
  do {
    length = recvmsg(socket, &header, MSG_CMSG_CLOEXEC | flags);
  } while (length < 0 && (errno == EINTR || errno == ECONNRESET));
  if (length < 0 && errno == EAGAIN) {
    return Received::kNothingYet;
  }
  message = Message();
  if (length >= 0) {
    detach(header, message.descriptors);
  }
  const bool isComplete = (header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) == 0;
  const bool isMessage = length >= static_cast<ssize_t>(sizeof message.kind) && isComplete;
  const std::string_view received(buffer.data(), static_cast<size_t>(std::max<ssize_t>(length, 0)));
  if (isMessage) {
    std::memcpy(&message.kind, received.data(), sizeof message.kind);
    message.bytes = received.substr(sizeof message.kind);
  }
  // For the same reason as SensitiveBytes.
  explicit_bzero(buffer.data(), received.size());
  return isMessage ? Received::kMessage : Received::kEnd;
}

}  // namespace

SensitiveBytes::~SensitiveBytes() {
  if (!bytes_.empty()) {
    explicit_bzero(bytes_.data(), bytes_.size());
  }
}

std::pair<Descriptor, Descriptor> makeSocketPair() {
  std::array<int, 2> ends = {-1, -1};
  socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data());
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

bool sendMessage(int socket, MessageKind kind, std::string_view bytes,
                 const std::vector<int>& descriptors) {
  const size_t length = sizeof kind + bytes.size();
  if (length > kMaxMessageSize || descriptors.size() > kMaxDescriptors) {
    return false;
  }
  std::array<iovec, 2> parts = {
      {{&kind, sizeof kind}, {const_cast<char*>(bytes.data()), bytes.size()}}};
  Control control{};
  msghdr header{};
  header.msg_iov = parts.data();
  header.msg_iovlen = parts.size();
  attach(header, control, descriptors);
  ssize_t sent = 0;
  do {
    sent = sendmsg(socket, &header, MSG_NOSIGNAL | MSG_DONTWAIT);
  } while (sent < 0 && errno == EINTR);
  return sent == static_cast<ssize_t>(length);
}

Received receiveMessage(int socket, Message& message) {
  Control control{};
  return receive(socket, message, 0, &control);
}

Received receiveMessageNow(int socket, Message& message) {
  Control control{};
  return receive(socket, message, MSG_DONTWAIT, &control);
}

Received receiveBytesNow(int socket, Message& message) {
  return receive(socket, message, MSG_DONTWAIT, nullptr);
}

}  // namespace quillon::launchpad
