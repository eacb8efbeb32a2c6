// Tests of what a power cut leaves. The test program runs inside its own device root.
//
// A test records the system calls of a process that writes, makes the states that a disk may have
// if the power is cut in between, and has the code that reads these files read each of them.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/system/power_cut/cut_states.h"
#include "tests/system/torture/launch.h"

namespace quillon::power_cut {

// The number of states that each test checks, from the option --states.
extern std::size_t statesOfEachTest;

class PowerCut : public ::testing::Test {
 protected:
  // Begins without packages, configuration, registry and cached lists.
  void SetUp() override;
  // Prints the figure of all tests of the suite.
  static void TearDownTestSuite();

  // Checks the disk after each possible cut during `work`. `check` gets the number of calls of
  // mark() before the cut.
  void cutDuring(const std::function<void()>& work,
                 const std::function<void(std::size_t marks)>& check);
};

// The lists of a launch after the cut: assemblies and folders of libraries, or how its process
// ended.
torture::Launched launchLists();

// The first of these lists, which no test changes.
std::string expectedAssemblies();

}  // namespace quillon::power_cut
