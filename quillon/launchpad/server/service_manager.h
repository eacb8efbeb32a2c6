// What the launch pad tells the service manager that started it, such as systemd: see sd_notify(3)
// and sd_watchdog_enabled(3). Without a service manager, nothing happens.
#pragma once

#include <chrono>
#include <string_view>

#include "quillon/base/descriptor.h"

namespace quillon::launchpad {

class ServiceManager {
 public:
  // Reads the environment variables NOTIFY_SOCKET and WATCHDOG_USEC, and unsets them. Connects to
  // the socket at once, since a device root may hide its path.
  ServiceManager();

  void tellReady() const { send("READY=1"); }
  void tellStopping() const { send("STOPPING=1"); }

  // Tells the service manager that this process is alive, if it is time to do so. Returns the time
  // until the next call; -1 if the service manager does not want to know.
  std::chrono::milliseconds keepAlive();

  // In a new child: releases the socket.
  void close() { socket_.reset(); }

 private:
  using Clock = std::chrono::steady_clock;

  void send(std::string_view state) const;

  Descriptor socket_;
  std::chrono::milliseconds interval_{-1};
  Clock::time_point next_;
};

}  // namespace quillon::launchpad
