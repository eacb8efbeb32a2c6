#include "bench/launch/launch_pad.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

#include "quillon/launchpad/client/client.h"

namespace quillon::bench {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr char kOutput[] = "/tmp/quillon-bench-launchpad.log";  // in the device root
constexpr char kNever[] = "3600";                               // seconds
constexpr milliseconds kPause{1};
constexpr milliseconds kMaxWait{60'000};
constexpr int kMaxUses = 3;

std::string lastOutputLine(const std::filesystem::path& device) {
  std::ifstream file(device / std::filesystem::path(kOutput).relative_path());
  std::string last = "nothing";
  for (std::string line; std::getline(file, line);) {
    last = line;
  }
  return last;
}

}  // namespace

Service launchPadFor(const std::filesystem::path& quillon, const std::filesystem::path& device,
                     const std::vector<std::string>& more) {
  std::vector<std::string> command = {quillon,  "launchpad", "--device",       device,
                                      "--size", "1",         "--refill-delay", kNever};
  command.insert(command.end(), more.begin(), more.end());
  return {std::move(command), kOutput};
}

LaunchPad::LaunchPad(const Place& place, const Setup& setup, std::chrono::duration<double> wait)
    : place_(place),
      device_(setup.device),
      statusCommand_(quoted(setup.quillon()) + " launchpad status --json --device " +
                     quoted(setup.device) + " 2>/dev/null"),
      wait_(wait) {}

// Whether a process waits that is prepared for the application.
bool LaunchPad::State::hasOwn(const std::string& appId) const {
  return std::any_of(ready.begin(), ready.end(), [&](const ReadyProcess& one) {
    return one.application == appId || one.pool.find(appId) != one.pool.npos;
  });
}

// Asks with the program of the build, because an older one has other messages.
Expected<LaunchPad::State> LaunchPad::state() const {
  ASSIGN_OR_RETURN(const std::string text, outputOf(statusCommand_));
  const auto status = nlohmann::json::parse(text, nullptr, false);
  if (status.is_discarded()) {
    return fail("the launch pad's status is malformed: " + text, "compare with a newer build");
  }
  State state;
  state.process = status.at("stopping").get<bool>() ? 0 : status.at("process").get<pid_t>();
  state.served = status.at("served").get<int>();
  state.pools = status.at("pools").size();
  if (const auto& direct = status.at("directLaunches"); !direct.empty()) {
    state.lastReason = direct.back().at("reason").get<std::string>();
  }
  for (const auto& process : status.at("processes")) {
    if (process.at("stage") == "ready") {
      const auto& application = process.at("application");
      state.ready.push_back({process.at("pid").get<pid_t>(), process.at("pool").get<std::string>(),
                             application.is_null() ? "" : application.get<std::string>()});
    } else {
      state.busy = true;
    }
  }
  return state;
}

Expected<LaunchPad::State> LaunchPad::awaitFull() const {
  const auto end = Clock::now() + kMaxWait;
  while (Clock::now() < end) {
    auto now = state();
    if (now && now->isFull()) {
      return now;
    }
    std::this_thread::sleep_for(kPause);
  }
  return fail("the launch pad has not prepared its processes",
              "it said: " + lastOutputLine(device_));
}

// Replaces all waiting processes.
Expected<LaunchPad::State> LaunchPad::refill() const {
  RETURN_IF_FAILED(launchpad::command(device_, launchpad::MessageKind::kReload));
  auto full = awaitFull();
  std::this_thread::sleep_for(wait_);
  return full;
}

Expected<void> LaunchPad::fill() const {
  const auto now = state();
  if (now && now->isFull()) {
    return {};
  }
  RETURN_IF_FAILED(refill());
  return {};
}

// Runs a contender. Returns the run and the number of launches that the launch pad served
// meanwhile.
Expected<std::pair<Run, int>> LaunchPad::runAndCount(size_t contender, Task task) const {
  ASSIGN_OR_RETURN(const State before, state());
  const Run run = place_.run(contender, task);
  ASSIGN_OR_RETURN(const State after, state());
  return std::pair(run, after.served - before.served);
}

// Uses the waiting processes until the contender's pool is empty.
Expected<void> LaunchPad::empty(size_t contender) const {
  for (int use = 0; use < kMaxUses; ++use) {
    ASSIGN_OR_RETURN(const auto used, runAndCount(contender, Task::kTime));
    if (used.second == 0) {
      return {};
    }
  }
  return fail("the launch pad's pool does not get empty", "see that nobody else refills it");
}

Expected<void> LaunchPad::start(const std::vector<size_t>& contenders) const {
  RETURN_IF_FAILED(awaitFull());
  for (const size_t contender : contenders) {
    RETURN_IF_FAILED(fill());
    RETURN_IF_FAILED(runAndCount(contender, Task::kTime));
  }
  return {};
}

// Brings the pools into the state that the contender requires.
Expected<void> LaunchPad::bring(const Contender& what, size_t contender) const {
  if (what.pool == Pool::kEmpty) {
    return empty(contender);
  }
  RETURN_IF_FAILED(fill());
  if (what.pool != Pool::kOwn) {
    return {};
  }
  ASSIGN_OR_RETURN(const State now, state());
  if (now.hasOwn(what.appId)) {
    return {};
  }
  return fail("the launch pad prepares no process for " + what.appId,
              "it said: " + lastOutputLine(device_));
}

Expected<Run> LaunchPad::run(size_t contender, const Contender& what, Task task) const {
  RETURN_IF_FAILED(bring(what, contender));
  ASSIGN_OR_RETURN(const auto done, runAndCount(contender, task));
  if (done.second == (what.pool == Pool::kEmpty ? 0 : 1)) {
    return done.first;
  }
  const auto now = state();
  return fail("'" + what.name + "' was served by the launch pad " + std::to_string(done.second) +
                  " times, so its row would be another one's",
              "the reason of the last direct launch: " + (now ? now->lastReason : "unknown"));
}

Expected<Preparation> LaunchPad::prepare() const {
  Preparation preparation;
  const auto start = Clock::now();
  ASSIGN_OR_RETURN(const State full, refill());
  preparation.seconds = std::chrono::duration<double>(Clock::now() - start - wait_).count();
  for (const ReadyProcess& process : full.ready) {
    preparation.waiting.push_back({process.pool, memoryOf(process.pid)});
  }
  preparation.launchPad = memoryOf(full.process);
  return preparation;
}

}  // namespace quillon::bench
