// Which applications get workers that know them.
#include "quillon/launchpad/server/usage.h"

#include <gmock/gmock.h>

namespace quillon::launchpad {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr uint64_t kPlenty = 1 << 30;

PoolKey keyOf(const std::string& id, const std::string& fingerprint = "1") {
  return {"inhouse", true, {}, {}, KnownApplication{id, "/root", "/root/bin/A.dll", fingerprint}};
}

TEST(Usage, RanksByLaunches) {
  Usage usage;
  const Usage::Time now;
  for (const char* id : {"a", "b", "b", "c", "b", "c"}) {
    usage.count(keyOf(id), now);
  }
  EXPECT_THAT(usage.affordable(kPlenty), ElementsAre(keyOf("b"), keyOf("c"), keyOf("a")));
}

TEST(Usage, OldLaunchesCountLess) {
  Usage usage;
  const Usage::Time now;
  usage.count(keyOf("a"), now);
  usage.count(keyOf("a"), now);
  usage.count(keyOf("a"), now);
  usage.count(keyOf("b"), now + 2 * kUsageHalfLife);
  EXPECT_THAT(usage.affordable(kPlenty), ElementsAre(keyOf("b"), keyOf("a")));
}

TEST(Usage, AnUpdateKeepsTheRankAndForgetsTheOldFiles) {
  Usage usage;
  const Usage::Time now;
  usage.count(keyOf("a"), now);
  usage.exclude(keyOf("a"));
  usage.count(keyOf("a", "2"), now);
  usage.count(keyOf("b"), now);
  EXPECT_THAT(usage.affordable(kPlenty), ElementsAre(keyOf("a", "2"), keyOf("b")));
}

TEST(Usage, StaysWithinTheMemory) {
  Usage usage;
  const Usage::Time now;
  usage.count(keyOf("a"), now);
  usage.count(keyOf("b"), now);
  EXPECT_THAT(usage.affordable(kTypicalMemoryKib - 1), IsEmpty());
  EXPECT_THAT(usage.affordable(2 * kTypicalMemoryKib - 1), ElementsAre(keyOf("a")));
  EXPECT_THAT(usage.affordable(2 * kTypicalMemoryKib), SizeIs(2));
  usage.setMemory(keyOf("a"), kTypicalMemoryKib + 1);
  EXPECT_THAT(usage.affordable(2 * kTypicalMemoryKib), ElementsAre(keyOf("a")));
}

TEST(Usage, LeavesOutTheExcludedAndTheForgotten) {
  Usage usage;
  const Usage::Time now;
  for (const char* id : {"a", "b", "c"}) {
    usage.count(keyOf(id), now);
  }
  usage.exclude(keyOf("a"));
  usage.forget(keyOf("b"));
  usage.count(keyOf("a"), now);
  EXPECT_THAT(usage.affordable(kPlenty), ElementsAre(keyOf("c")));
  usage.endExclusions();
  EXPECT_THAT(usage.affordable(kPlenty), ElementsAre(keyOf("a"), keyOf("c")));
}

TEST(Usage, IsBounded) {
  Usage usage;
  for (int i = 0; i < 1000; ++i) {
    usage.count(keyOf(std::to_string(i)), Usage::Time() + i * 1h);
  }
  EXPECT_THAT(usage.affordable(kPlenty), SizeIs(kMaxOwnPools));
  EXPECT_EQ(usage.affordable(kPlenty).front(), keyOf("999"));
}

}  // namespace
}  // namespace quillon::launchpad
