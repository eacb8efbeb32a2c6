// The validator's parser of requests. It loses no byte of the input, and accepts only requests with
// a plain path and a valid process id. Input: the content of the request pipe.
#include <algorithm>
#include <filesystem>

#include "quillon/validator/request.h"
#include "tests/fuzz/target.h"

namespace {

using quillon::validator::Request;
using quillon::validator::RequestReader;

constexpr std::string_view kKeyword = "RequestForDllValidation:";
constexpr std::size_t kMaxRead = 1023;

std::string withoutLineEnds(std::string_view text) {
  std::string rest(text);
  std::erase(rest, '\n');
  return rest;
}

void requireRequest(const Request& request) {
  FUZZ_REQUIRE(request.isRequest == request.text.starts_with(kKeyword));
  FUZZ_REQUIRE(request.path.empty() == !request.wrong.empty());
  FUZZ_REQUIRE(request.process >= 0);
  if (request.path.empty()) {
    return;
  }
  FUZZ_REQUIRE(request.isRequest && request.process > 0);
  FUZZ_REQUIRE(request.path.front() == '/');
  FUZZ_REQUIRE(request.text.ends_with(":" + request.path));
  FUZZ_REQUIRE(std::filesystem::path(request.path).lexically_normal() == request.path);
  FUZZ_REQUIRE(std::none_of(request.path.begin(), request.path.end(),
                            [](unsigned char c) { return c < 0x20 || c == 0x7f; }));
}

}  // namespace

FUZZ_TARGET(validator_request) {
  RequestReader reader;
  std::vector<Request> requests;
  std::string sent;
  const auto give = [&](std::string_view text) {
    for (Request& request : reader.take(text)) {
      requests.push_back(std::move(request));
    }
  };
  // Like the server: one text for each read, up to a NUL, without one line end.
  for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kMaxRead))) {
    std::string_view text = bytes.substr(0, kMaxRead);
    if (text.ends_with('\n')) {
      text.remove_suffix(1);
    }
    text = text.substr(0, text.find('\0'));
    sent += text;
    give(text);
  }
  give("");  // ends a request that a full text has left incomplete

  std::string received;
  for (const Request& request : requests) {
    requireRequest(request);
    received += request.text;
  }
  FUZZ_REQUIRE(withoutLineEnds(received) == withoutLineEnds(sent));
}
