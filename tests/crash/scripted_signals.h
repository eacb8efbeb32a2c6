// The calls of sigaction and time of the code under test, between it and the C library.
#pragma once

#include <csignal>
#include <ctime>
#include <functional>
#include <optional>
#include <set>
#include <vector>

namespace quillon::test {

struct ScriptedSignals {
  bool records = false;             // whether `installed` grows
  std::set<int> failing;            // signals for which sigaction fails
  std::vector<int> installed;       // signals that an action was installed for, in order
  std::optional<std::time_t> now;   // what time returns instead
  std::function<void()> onInstall;  // runs right after an action was installed
};

ScriptedSignals& signals();

// The action in force, whatever the script says.
struct sigaction actionOf(int signal);

// Remembers what is in force for the signals that the plug-in handles, and puts it back.
class KeptActions {
 public:
  KeptActions();
  ~KeptActions();
  KeptActions(const KeptActions&) = delete;
  KeptActions& operator=(const KeptActions&) = delete;

 private:
  std::vector<struct sigaction> actions_;
};

}  // namespace quillon::test
