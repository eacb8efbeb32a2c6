// The validator's reading of requests: whatever comes out of the pipe, no byte of it is lost, and
// only a plain path of a known process is a request to decide. Input: what is in the request pipe.
#include <algorithm>
#include <filesystem>

#include "quillon/validator/request.h"
#include "tests/fuzz/target.h"

namespace {

using quillon::validator::Request;
using quillon::validator::RequestReader;

constexpr std::string_view kKeyword = "RequestForDllValidation:";
constexpr std::size_t kMostRead = 1023;

std::string withoutLineEnds(std::string_view text) {
  std::string rest(text);
  std::erase(rest, '\n');
  return rest;
}

void requireRequest(const Request& request) {
  FUZZ_REQUIRE(request.isRequest == request.text.starts_with(kKeyword));
  FUZZ_REQUIRE(request.path.empty() == !request.wrong.empty());
  FUZZ_REQUIRE(request.process >= 0);
  if (request.path.empty()) return;
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
    for (Request& request : reader.take(text)) requests.push_back(std::move(request));
  };
  // As the server does: one text a read, without one line end, and up to a NUL.
  for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), kMostRead))) {
    std::string_view text = bytes.substr(0, kMostRead);
    if (text.ends_with('\n')) text.remove_suffix(1);
    text = text.substr(0, text.find('\0'));
    sent += text;
    give(text);
  }
  give("");  // ends what a full text has left open

  std::string received;
  for (const Request& request : requests) {
    requireRequest(request);
    received += request.text;
  }
  FUZZ_REQUIRE(withoutLineEnds(received) == withoutLineEnds(sent));
}
