// A device root with a zone to enter, and what code under test did in it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/device_root/inside.h"
#include "tests/support/recording_platform.h"

namespace quillon::test {

struct ZoneRun {
  bool returned = false;           // else the process ended by itself
  int status = -1;                 // with this exit status
  std::vector<std::string> lines;  // of the log, "PRIORITY TEXT", without trace lines
  std::string lastOrigin;          // of the last one: unit, function, colour
  std::vector<std::string> calls;  // of the fake zone library
  bool libraryMapped = false;      // at the end
  int descriptorsLeft = 0;         // more of them open at the end than at the beginning
};

class ZoneTest : public DeviceRootTest {
 protected:
  // Puts the fake zone library that lacks one function into the device root ("NOTHING": whole).
  void placeLibrary(const std::string& without);
  // Makes "/zone/appzone": a process in the device root is outside the zone.
  void showZone();

  // Runs `body` in a process of its own inside the device root, as a process of a package that
  // declares `privileges`.
  ZoneRun run(const std::function<void()>& body, const std::string& behaviour = "",
              const std::vector<std::string>& privileges = {});
};

}  // namespace quillon::test
