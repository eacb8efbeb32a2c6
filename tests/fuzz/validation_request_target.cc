// The requests that a validator is called with: all that was sent, in texts of one read each.
// Input: what is in the request pipe.
#include <algorithm>
#include <string>
#include <vector>

#include "quillon_tv_plugin.h"
#include "tests/fuzz/private_pipes.h"
#include "tests/fuzz/target.h"

namespace {

constexpr std::size_t kMostRead = 1023;

std::vector<std::string> received;

void receive(const char* text, void* userData) {
  FUZZ_REQUIRE(userData == nullptr);
  received.emplace_back(text);
}

// One text for each read: without one line end, and up to a NUL.
std::vector<std::string> model(std::string_view bytes) {
  std::vector<std::string> texts;
  for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kMostRead))) {
    std::string_view text = bytes.substr(0, kMostRead);
    if (text.ends_with('\n')) text.remove_suffix(1);
    texts.emplace_back(text.substr(0, text.find('\0')));
  }
  return texts;
}

}  // namespace

FUZZ_TARGET(validation_request) {
  received.clear();
  PrivatePipes pipes;
  pipes.send(bytes);
  create_pipe_server(receive);  // returns at the end of what was sent: nothing waits for more
  FUZZ_REQUIRE(received == model(bytes.substr(0, 4096)));
}
