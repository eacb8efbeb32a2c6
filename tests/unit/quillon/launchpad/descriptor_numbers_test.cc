#include "quillon/launchpad/worker/descriptor_numbers.h"

#include <fcntl.h>
#include <gmock/gmock.h>

#include <vector>

#include "quillon/launchpad/protocol/hand_over.h"

namespace quillon::launchpad {
namespace {

using ::testing::HasSubstr;

Descriptor openFolder() { return Descriptor(open("/", O_RDONLY | O_CLOEXEC)); }

TEST(DescriptorNumbers, LowOnesAreOccupied) {
  Descriptor own = openFolder();
  const int before = own.get();
  {
    const auto numbers = LowNumbers::occupy(own);
    ASSERT_TRUE(numbers);
    EXPECT_GE(own.get(), kMinOwnDescriptor);
    EXPECT_GE(openFolder().get(), kMinOwnDescriptor);
  }
  EXPECT_TRUE(own);
  EXPECT_EQ(openFolder().get(), before);
}

TEST(DescriptorNumbers, AreRaisedOnce) {
  Descriptor descriptor = openFolder();
  ASSERT_TRUE(raise(descriptor));
  const int high = descriptor.get();
  EXPECT_GE(high, kMinOwnDescriptor);
  ASSERT_TRUE(raise(descriptor));
  EXPECT_EQ(descriptor.get(), high);
  Descriptor none;
  EXPECT_TRUE(raise(none));
  EXPECT_FALSE(none);
}

TEST(DescriptorNumbers, AreThoseOfTheClient) {
  std::vector<Descriptor> descriptors;
  descriptors.push_back(openFolder());
  ASSERT_TRUE(raise(descriptors.front()));
  constexpr int kNumber = 150;
  ASSERT_TRUE(duplicateTo({kNumber}, descriptors));
  const Descriptor duplicate(kNumber);
  EXPECT_EQ(fcntl(kNumber, F_GETFD), 0);
  for (const int unusable : {kNumber, STDIN_FILENO, -1}) {
    const auto again = duplicateTo({unusable}, descriptors);
    ASSERT_FALSE(again);
    EXPECT_THAT(again.error().what, HasSubstr("descriptor " + std::to_string(unusable)));
  }
}

}  // namespace
}  // namespace quillon::launchpad
