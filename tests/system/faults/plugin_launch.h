// Launches of the built plug-in that call every exported function, in child processes.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::faults {

struct Scenario {
  std::string name;
  std::string type;         // application type
  std::string application;  // "allowed" or "forbidden", which lacks the platform privilege
  bool isCached = false;    // the lists are in their caches
  bool prints = false;      // on captured standard streams
  int changes = 0;          // of the configuration, at most
};

inline constexpr char kHangs[] = "hangs";

// How a launch ended.
struct Result {
  enum class End {
    kReturned,  // all functions have returned
    kRefused,   // the plug-in has ended the process with status 0
    kKilled     // a signal, or another status
  } end = End::kKilled;
  std::string how;                  // for messages; kHangs after a time limit
  std::string function;             // the last one that was called
  std::vector<std::string> thrown;  // functions that exceptions have left, with their kind
  // What each function has returned: a number, or "null", "empty" or "text". Empty if it returns
  // nothing or has not returned.
  std::map<std::string, std::string> answers;
  std::string assemblies;          // as plugin_get_tpa has returned them
  std::string folders;             // of plugin_get_dll_path
  bool isAccepted = false;         // plugin_set_app_info has returned
  bool isLibraryAccepted = false;  // although the validator has refused it
  bool hasNoticed = false;         // a change of the configuration
};

// Is called before each function of a launch, with its name.
using BeforeCall = std::function<void(std::string_view name)>;

// Loads the plug-in into the calling process. Returns what dlopen(3) returns.
void* loadPlugin();

// Returns the names of the functions that a launch calls.
std::set<std::string> functionsOfLaunch();

// Calls all functions in a child process. Calls `before` there first.
Result launch(
    const Scenario& scenario, const std::function<void()>& before,
    const BeforeCall& beforeEach = [](std::string_view) {});

}  // namespace quillon::faults
