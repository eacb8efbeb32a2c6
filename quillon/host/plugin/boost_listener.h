// The launch-boost daemon's place on a machine that has none.
//
// plugin_set_app_info sends the daemon a notice, and where nobody listens it tries five times with
// a pause of 10 ms between: twice as long as a small application takes to start. While a listener
// is there and no daemon is, the launcher listens itself, and drops what it is sent.
#pragma once

namespace quillon::host {

// One at a time; make it right before plugin_set_app_info. It ends without a trace, also where the
// plug-in ends the process meanwhile. Where it cannot listen the plug-in waits as it would.
class BoostListener {
 public:
  BoostListener();
  ~BoostListener();
  BoostListener(const BoostListener&) = delete;
  BoostListener& operator=(const BoostListener&) = delete;
};

}  // namespace quillon::host
