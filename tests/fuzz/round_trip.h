// Sends a launch-pad message through a socket, as the product does.
#pragma once

#include <utility>

#include "quillon/launchpad/protocol/message.h"
#include "tests/fuzz/target.h"

namespace quillon::fuzz {

// send  a function of a socket that sends one message and returns whether it could
template <typename Send>
launchpad::Message sentAndReceived(const Send& send) {
  static const std::pair<Descriptor, Descriptor> sockets = launchpad::makeSocketPair();
  launchpad::Message message;
  FUZZ_REQUIRE(send(sockets.first.get()));
  FUZZ_REQUIRE(launchpad::receiveMessageNow(sockets.second.get(), message) ==
               launchpad::Received::kMessage);
  return message;
}

}  // namespace quillon::fuzz
