// What a client can send to the launch pad: requests and reports. A request has one form: encoding
// an accepted one gives the same bytes. Input: the message, see scripted_message.h.
#include "quillon/base/record.h"
#include "quillon/launchpad/protocol/request.h"
#include "tests/fuzz/round_trip.h"
#include "tests/fuzz/scripted_message.h"

namespace {

using namespace quillon::launchpad;

// The process state of the launch pad, as far as this target is concerned.
ProcessState ownState() {
  return quillon::RecordWriter().text("its blocked signals").text("0").text("TZ").text("C").take();
}

void requireStatesAreCompared(const ProcessState& state) {
  const ProcessState own = ownState();
  FUZZ_REQUIRE(firstDifference(state, state).empty());
  const std::string difference = firstDifference(own, state);
  FUZZ_REQUIRE(difference.empty() == firstDifference(state, own).empty());
  if (difference.empty()) {
    FUZZ_REQUIRE(state.find("its blocked signals") != state.npos);
    FUZZ_REQUIRE(state.size() >= own.size());  // longer if a name occurs twice
  }
}

}  // namespace

FUZZ_TARGET(launchpad_client) {
  const Message message = scriptedMessage(bytes);
  const auto request = parseRequest(message);
  if (!request) {
    return;
  }
  const Message again = sentAndReceived([&](int socket) { return sendRequest(socket, *request); });
  FUZZ_REQUIRE(again.kind == MessageKind::kLaunch);
  FUZZ_REQUIRE(again.bytes.view() == message.bytes.view());
  requireStatesAreCompared(request->processState);
}
