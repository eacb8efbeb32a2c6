// What a launch pad can send to a client. Each message has one form: encoding an accepted one gives
// the same bytes. Input: the message, see scripted_message.h.
#include <signal.h>

#include "quillon/launchpad/protocol/exit_state.h"
#include "quillon/launchpad/protocol/request.h"
#include "quillon/launchpad/protocol/status.h"
#include "tests/fuzz/round_trip.h"
#include "tests/fuzz/scripted_message.h"

namespace {

using namespace quillon::launchpad;

void requireDeclineHasOneForm(const Message& message) {
  if (const auto decline = parseDecline(message)) {
    const Message again =
        quillon::fuzz::sentAndReceived([&](int socket) { return sendDecline(socket, *decline); });
    FUZZ_REQUIRE(again.bytes.view() == message.bytes.view());
  }
}

// The client ends like this: exit(2) and kill(2) must be able to.
void requireEndIsPossible(std::string_view bytes) {
  const auto state = decodeExitState(bytes);
  if (!state) {
    return;
  }
  FUZZ_REQUIRE(encode(*state) == bytes);
  FUZZ_REQUIRE(state->bySignal ? state->number > 0 && state->number < NSIG
                               : state->number >= 0 && state->number < 256);
}

void requireStatusHasOneForm(std::string_view bytes) {
  if (const auto status = decodeStatus(bytes)) {
    FUZZ_REQUIRE(encode(*status) == bytes);
  }
}

// The client hands a launch over only if it has a worker.
void requireTakenIsComplete(Message message) {
  const bool isComplete =
      message.bytes.view().size() == sizeof(std::uint64_t) && message.descriptors.size() == 1;
  const TakenReply reply = parseTaken(std::move(message));
  FUZZ_REQUIRE(isComplete || !reply.pidfd);
}

}  // namespace

FUZZ_TARGET(launchpad_server) {
  Message message = scriptedMessage(bytes);
  requireDeclineHasOneForm(message);
  requireEndIsPossible(message.bytes.view());
  requireStatusHasOneForm(message.bytes.view());
  requireTakenIsComplete(std::move(message));
}
