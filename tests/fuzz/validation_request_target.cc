// The requests that a validator receives: all bytes that were sent, one text for each read.
// Input: the content of the request pipe.
#include <algorithm>
#include <string>
#include <vector>

#include "quillon_tv_plugin.h"
#include "tests/fuzz/private_pipes.h"
#include "tests/fuzz/target.h"

namespace {

constexpr std::size_t kMaxRead = 1023;

std::vector<std::string> received;

void receive(const char* text, void* userData) {
  FUZZ_REQUIRE(userData == nullptr);
  received.emplace_back(text);
}

// One text for each read: up to a NUL, without one line end.
std::vector<std::string> model(std::string_view bytes) {
  std::vector<std::string> texts;
  for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kMaxRead))) {
    std::string_view text = bytes.substr(0, kMaxRead);
    if (text.ends_with('\n')) {
      text.remove_suffix(1);
    }
    texts.emplace_back(text.substr(0, text.find('\0')));
  }
  return texts;
}

}  // namespace

FUZZ_TARGET(validation_request) {
  received.clear();
  PrivatePipes pipes;
  pipes.send(bytes);
  create_pipe_server(receive);  // returns after the last byte, because reads do not block
  FUZZ_REQUIRE(received == model(bytes.substr(0, 4096)));
}
