// The plug-in's reader of a validator's answer. An answer with "FAIL" is a refusal, also after a
// NUL. Input: the content of the answer pipe.
#include <unistd.h>

#include <algorithm>

#include "quillon_tv_plugin.h"
#include "tests/fuzz/private_pipes.h"
#include "tests/fuzz/target.h"
#include "tests/support/recording_platform.h"

namespace {

constexpr std::size_t kMaxRead = 1023;

// The text of one read: up to a NUL, without one line end.
std::string modelOfText(std::string_view bytes) {
  bytes = bytes.substr(0, kMaxRead);
  if (bytes.ends_with('\n')) {
    bytes.remove_suffix(1);
  }
  return std::string(bytes.substr(0, bytes.find('\0')));
}

bool isYes(std::string_view bytes) {
  return !bytes.empty() && bytes.substr(0, kMaxRead).find("FAIL") == std::string_view::npos;
}

// The bytes that the client writes for a message.
std::string modelOfAnswer(const std::string& message) {
  std::string line;
  for (int i = 0; i < 5; ++i) {
    line += message;
  }
  std::string all;
  for (int i = 0; i < 10; ++i) {
    all += line + "\n";
  }
  return all;
}

}  // namespace

FUZZ_TARGET(validation_answer) {
  constexpr char kLibrary[] = "/";  // the plug-in only resolves the path
  const std::string request = "RequestForDllValidation:" + std::to_string(getpid()) + ":/\n";
  bytes = bytes.substr(0, 4096);

  PrivatePipes pipes;
  pipes.send(bytes);
  FUZZ_REQUIRE(plugin_validate_dll(0, kLibrary) == (isYes(bytes) ? 1 : 0));
  FUZZ_REQUIRE(pipes.takeRequests() == request);
  FUZZ_REQUIRE(pipes.takeAnswers() == bytes.substr(std::min(bytes.size(), kMaxRead)));
  const auto lines = quillon::test::platform().lines();
  FUZZ_REQUIRE(bytes.empty() ||
               lines.back() == "4 RequestForDllValidation Result : " + modelOfText(bytes));

  const std::string message = modelOfText(bytes);
  create_pipe_client(message.c_str());
  const std::string answer = pipes.takeAnswers();
  FUZZ_REQUIRE(answer == modelOfAnswer(message));
  pipes.send(std::string_view(answer).substr(0, kMaxRead));
  FUZZ_REQUIRE(plugin_validate_dll(0, kLibrary) == (isYes(answer) ? 1 : 0));
}
