#include "quillon/launchpad/worker/terminal_setup.h"

#include <gtest/gtest.h>

namespace quillon::launchpad {
namespace {

// Then the launch pad's managed code leaves the console alone.
TEST(TerminalSetup, IsNotPostponedInARuntimeWithoutIt) {
  constexpr char kSetup[] = "SystemNative_InitializeTerminalAndSignalHandling";
  EXPECT_EQ(findTerminalSetup("libSystem.Native", kSetup), nullptr);
  EXPECT_EQ(findTerminalSetup("Quillon.Launchpad", "PostponeTerminalSetup"), nullptr);
}

}  // namespace
}  // namespace quillon::launchpad
