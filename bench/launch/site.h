// A site: a build with a device root and a launch pad of its own.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "bench/launch/launch_pad.h"
#include "bench/launch/place.h"
#include "bench/launch/setup.h"

namespace quillon::bench {

class Site {
 public:
  // Must be called while the process has one thread. `contenders` must remain live while the object
  // is used.
  //
  // environment  NAME=VALUE, added to that of the launch pad
  // wait         how long prepared processes wait before their launch
  Site(Setup setup, const std::vector<Contender>& contenders, std::chrono::duration<double> wait,
       std::vector<std::string> environment = {});

  const Setup& setup() const { return setup_; }
  const Place& place() const { return place_; }
  const LaunchPad& launchPad() const { return launchPad_; }

 private:
  const Setup setup_;
  const Place place_;  // inside the device root
  const LaunchPad launchPad_;
};

}  // namespace quillon::bench
