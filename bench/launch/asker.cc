#include "bench/launch/asker.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cstring>
#include <string>
#include <vector>

#include "bench/launch/words.h"
#include "quillon/launchpad/protocol/message.h"

namespace quillon::bench {

using launchpad::MessageKind;

Asker::Asker(const Contender& contender) {
  auto [own, others] = launchpad::makeSocketPair();
  const std::vector<std::string> words = {contender.request.asker, contender.request.quillon,
                                          contender.request.device, contender.appId};
  const std::vector<char*> arguments = pointersTo(words);
  const std::vector<std::string> variables = environmentOf(contender);
  const std::vector<char*> environment = pointersTo(variables);
  posix_spawn_file_actions_t descriptors;
  posix_spawn_file_actions_init(&descriptors);
  posix_spawn_file_actions_adddup2(&descriptors, others.get(), kAskerSocket);
  if (posix_spawn(&process_, arguments[0], &descriptors, nullptr, arguments.data(),
                  environment.data()) != 0) {
    process_ = -1;
  }
  posix_spawn_file_actions_destroy(&descriptors);
  socket_ = std::move(own);
}

Asker::~Asker() {
  socket_.reset();
  if (process_ >= 0) {
    waitpid(process_, nullptr, 0);
  }
}

bool Asker::request(bool wait, int input, int output) const {
  const char arguments = wait ? 1 : 0;
  return launchpad::sendMessage(socket_.get(), MessageKind::kLaunch, {&arguments, 1},
                                {input, output});
}

std::optional<std::chrono::steady_clock::time_point> Asker::awaitEnd() const {
  launchpad::Message answer;
  int64_t nanoseconds = 0;
  if (launchpad::receiveMessage(socket_.get(), answer) != launchpad::Received::kMessage ||
      answer.bytes.view().size() != sizeof nanoseconds) {
    return std::nullopt;
  }
  std::memcpy(&nanoseconds, answer.bytes.view().data(), sizeof nanoseconds);
  return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(nanoseconds));
}

}  // namespace quillon::bench
