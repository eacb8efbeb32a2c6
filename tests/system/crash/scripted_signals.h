// Replaces the calls of sigaction and time in the code under test.
#pragma once

#include <csignal>
#include <ctime>
#include <functional>
#include <optional>
#include <set>
#include <vector>

namespace quillon::test {

struct ScriptedSignals {
  bool records = false;                 // if true, appends to `installed`
  std::set<int> failing;                // signals for which sigaction fails
  bool isUnknown = false;               // the current action cannot be asked for
  std::vector<int> installed;           // signals for which an action was installed, in order
  std::optional<std::time_t> now;       // result of time, if set
  std::function<void()> beforeInstall;  // called before an action is installed
  std::function<void()> onInstall;      // called after an action was installed
};

ScriptedSignals& signals();

// Returns the current action, also if the script makes sigaction fail.
struct sigaction actionOf(int signal);

// Saves the actions of the signals that the plug-in handles, and restores them in the destructor.
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
