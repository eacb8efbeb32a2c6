// Receiving from a launch-pad socket. Input: the number of descriptors and the number of bytes to
// append on a line, then the first bytes of the message.
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <vector>

#include "quillon/launchpad/protocol/message.h"
#include "tests/fuzz/target.h"

namespace {

using namespace quillon::launchpad;

constexpr std::uint64_t kMaxCarried = 40;  // more than a reader takes
constexpr std::uint64_t kMaxSent = kMaxMessageSize + 16;

std::uint64_t takeNumber(std::string_view& line) {
  std::uint64_t number = 0;
  const auto end = std::from_chars(line.data(), line.data() + line.size(), number).ptr;
  line.remove_prefix(static_cast<std::size_t>(end - line.data()));
  line.remove_prefix(line.empty() ? 0 : 1);
  return number;
}

bool sendRaw(int socket, std::string& bytes, std::size_t carried) {
  union {
    cmsghdr header;
    char space[CMSG_SPACE(kMaxCarried * sizeof(int))];
  } control{};
  iovec part{bytes.data(), bytes.size()};
  msghdr header{};
  header.msg_iov = &part;
  header.msg_iovlen = 1;
  if (carried > 0) {
    header.msg_control = control.space;
    header.msg_controllen = CMSG_SPACE(carried * sizeof(int));
    control.header = {CMSG_LEN(carried * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
    std::memset(CMSG_DATA(&control.header), 0, carried * sizeof(int));  // standard input
  }
  return sendmsg(socket, &header, MSG_NOSIGNAL | MSG_DONTWAIT) ==
         static_cast<ssize_t>(bytes.size());
}

void requireReceived(const Message& message, const std::string& bytes, std::size_t carried) {
  FUZZ_REQUIRE(std::memcmp(&message.kind, bytes.data(), sizeof message.kind) == 0);
  FUZZ_REQUIRE(message.bytes.view() == std::string_view(bytes).substr(sizeof message.kind));
  FUZZ_REQUIRE(message.descriptors.size() == carried);
}

}  // namespace

FUZZ_TARGET(socket_message) {
  static const auto sockets = makeSocketPair();
  Input input(bytes);
  std::string_view line = input.line();
  const std::size_t carried = std::min(takeNumber(line), kMaxCarried);
  std::string sent(input.rest());
  sent.resize(std::min(sent.size() + std::min(takeNumber(line), kMaxSent), kMaxSent), 'x');
  if (sent.empty()) {
    return;  // means the end of the connection
  }

  const bool isMessage = sent.size() >= sizeof(MessageKind) && sent.size() <= kMaxMessageSize;
  Message message;
  FUZZ_REQUIRE(sendRaw(sockets.first.get(), sent, carried));
  const auto received = receiveMessageNow(sockets.second.get(), message);
  FUZZ_REQUIRE((received == Received::kMessage) == (isMessage && carried <= kMaxDescriptors));
  if (received == Received::kMessage) {
    requireReceived(message, sent, carried);
  }
  FUZZ_REQUIRE(sendRaw(sockets.first.get(), sent, carried));
  const auto withoutDescriptors = receiveBytesNow(sockets.second.get(), message);
  FUZZ_REQUIRE((withoutDescriptors == Received::kMessage) == (isMessage && carried == 0));
  if (withoutDescriptors == Received::kMessage) {
    requireReceived(message, sent, 0);
  }
}
