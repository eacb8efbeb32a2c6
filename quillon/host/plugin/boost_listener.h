// A stand-in for the launch-boost daemon on a machine without one.
//
// plugin_set_app_info sends the daemon a notice. If no process listens, it tries five times with
// pauses of 10 ms, which takes twice as long as the start of a small application. So if there is no
// daemon, the launcher listens itself, and ignores what it receives.
#pragma once

namespace quillon::host {

// Only one may exist at a time in a process. Create it right before plugin_set_app_info. It removes
// its socket when it is destroyed, and also if the plug-in ends the process. If it cannot listen,
// the plug-in waits as described above.
//
// A daemon that starts meanwhile and replaces the socket keeps its own. A child of the process that
// created the object removes nothing.
class BoostListener {
 public:
  BoostListener();
  ~BoostListener();

  // False if a daemon or another launch listens, or if the path is not free.
  [[nodiscard]] bool isListening() const;

  BoostListener(const BoostListener&) = delete;
  BoostListener& operator=(const BoostListener&) = delete;
};

}  // namespace quillon::host
