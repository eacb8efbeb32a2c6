// Launch profiles: their format, what they record, and what is read of them.
#include "quillon/prefetch/launch_profile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/magic.h>
#include <sys/inotify.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "quillon/base/descriptor.h"
#include "quillon/prefetch/background_read_ahead.h"
#include "quillon/prefetch/profile_files.h"
#include "quillon/prefetch/read_ahead.h"
#include "quillon/prefetch/touched_pages.h"
#include "tests/support/temporary_directory.h"

namespace quillon::prefetch {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr char kStart[] = "quillon launch profile 1\n";
constexpr auto kNever = [] { return false; };
constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20;

TEST(LaunchProfile, IsReadAsItWasWritten) {
  const LaunchProfile profile{{{"/a file", {5, 7}, {{0, 4096}, {8192, 1}}}, {"/b", {1, 2}, {}}}};
  const auto read = parseProfile(format(profile));
  ASSERT_TRUE(read);
  ASSERT_EQ(read->files.size(), 2U);
  EXPECT_EQ(read->files[0].path, "/a file");
  EXPECT_EQ(read->files[0].version, (FileVersion{5, 7}));
  EXPECT_THAT(read->files[0].ranges, ElementsAre(Range{0, 4096}, Range{8192, 1}));
  EXPECT_EQ(read->files[1].path, "/b");
}

TEST(LaunchProfile, OtherTextIsMalformed) {
  const std::string start = kStart;
  for (const std::string& text :
       {std::string(), std::string("quillon launch profile 2\n"), start + "0 4096\n",
        start + "file 1 2 relative\n", start + "file 1 /a\n", start + "file x 2 /a\n",
        start + "file 1 2 /a\n-1 5\n", start + "file 1 2 /a\n1\n", start + "file 1 2 /a\n\n",
        start + "file 1 2 /a\n0 99999999999999999999\n"}) {
    EXPECT_FALSE(parseProfile(text)) << text;
  }
}

TEST(LaunchProfile, NamesNoMoreThanItsLimits) {
  std::string text = kStart;
  for (std::size_t i = 0; i < kMaxFiles; ++i) {
    text += "file 1 2 /a\n";
  }
  EXPECT_TRUE(parseProfile(text));
  EXPECT_FALSE(parseProfile(text + "file 1 2 /a\n"));
  text += "0 " + std::to_string(kMaxBytes) + "\n";
  EXPECT_TRUE(parseProfile(text));
  EXPECT_FALSE(parseProfile(text + "0 1\n"));
}

// Otherwise the reader would refuse the text, and each launch would record again.
TEST(LaunchProfile, TextLeavesOutWhatExceedsTheLimits) {
  LaunchProfile profile{{{"/a", {}, {{0, kMaxBytes - 5}, {kMaxBytes, 9}, {2 * kMaxBytes, 1}}}}};
  profile.files.resize(kMaxFiles + 1, {"/b", {}, {{7, 7}}});
  const auto cut = parseProfile(format(profile));
  ASSERT_TRUE(cut);
  EXPECT_EQ(cut->files.size(), kMaxFiles);
  EXPECT_THAT(cut->files[0].ranges, ElementsAre(Range{0, kMaxBytes - 5}, Range{kMaxBytes, 5}));
  EXPECT_THAT(cut->files[1].ranges, IsEmpty());

  const std::vector<Range> ranges(kMaxText / 4 / 3, Range{1, 1});  // "1 1\n": a third of the text
  profile.files.assign(4, {"/c", {}, ranges});
  const std::string text = format(profile);
  EXPECT_LE(text.size(), kMaxText);
  const auto some = parseProfile(text);
  ASSERT_TRUE(some);
  ASSERT_EQ(some->files.size(), 2U);
  EXPECT_EQ(some->files[1].ranges, ranges);
}

TEST(LaunchProfile, ALongerTextIsRefused) {
  std::string text = kStart;
  text += "file 1 2 /" + std::string(kMaxText - text.size() - 11, 'a') + '\n';
  EXPECT_TRUE(parseProfile(text));
  text.insert(text.size() - 1, "a");
  EXPECT_FALSE(parseProfile(text));
}

class ReadAhead : public ::testing::Test {
 protected:
  std::string path(const char* name) const { return directory_.path() / name; }
  std::string makeFile(const char* name) const {
    std::ofstream(path(name)) << std::string(4 * kMebibyte, 'x');
    return path(name);
  }
  static ProfiledFile profiled(const std::string& file, std::vector<Range> ranges) {
    struct stat status {};
    stat(file.c_str(), &status);
    return {file, versionOf(status), std::move(ranges)};
  }
  // Not on a file system that has its files in memory only.
  static void removeFromCache(const std::string& file) {
    const Descriptor opened(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    fsync(opened.get());
    posix_fadvise(opened.get(), 0, 0, POSIX_FADV_DONTNEED);
  }
  // Whether the condition holds once the file is not in the cache. It is tried repeatedly: to ask
  // the kernel whether a page is cached makes it read the page, perhaps before it answers.
  static bool holdsOnceRemoved(const std::string& file, const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    do {
      removeFromCache(file);
      if (condition()) {
        return true;
      }
    } while (std::chrono::steady_clock::now() < end);
    return false;
  }
  bool isInMemoryOnly() const {
    struct statfs system {};
    statfs(directory_.path().c_str(), &system);
    return system.f_type == TMPFS_MAGIC;
  }
  // The state of a profile whose file was removed from the cache.
  ProfileState removedState() const {
    return isInMemoryOnly() ? ProfileState::kWarm : ProfileState::kCold;
  }

 private:
  test::TemporaryDirectory directory_;
};

TEST_F(ReadAhead, BringsTheRangesIntoTheCache) {
  const std::string file = makeFile("file");
  const LaunchProfile profile{{profiled(file, {{0, kMebibyte}, {3 * kMebibyte, kMebibyte}})}};
  EXPECT_TRUE(holdsOnceRemoved(file, [&] { return stateOf(profile) == removedState(); }));
  readAhead(profile, kNever);
  EXPECT_EQ(stateOf(profile), ProfileState::kWarm);
}

TEST_F(ReadAhead, ReadsNothingAfterItWasStopped) {
  const std::string file = makeFile("file");
  const LaunchProfile profile{{profiled(file, {{0, kMebibyte}})}};
  EXPECT_TRUE(holdsOnceRemoved(file, [&] {
    readAhead(profile, [] { return true; });
    return stateOf(profile) == removedState();
  }));
}

TEST_F(ReadAhead, AChangedFileMakesTheProfileOutdated) {
  const std::string file = makeFile("file");
  const LaunchProfile profile{{profiled(file, {{0, kMebibyte}})}};
  EXPECT_NE(stateOf(profile), ProfileState::kOutdated);
  std::ofstream(file, std::ios::app) << "more";
  EXPECT_EQ(stateOf(profile), ProfileState::kOutdated);
  unlink(file.c_str());
  EXPECT_EQ(stateOf(profile), ProfileState::kOutdated);
  EXPECT_EQ(stateOf({}), ProfileState::kOutdated);
}

// A forged profile has the right version of each file.
TEST_F(ReadAhead, OpensNeitherFifosNorDevicesNorLinks) {
  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  const std::string target = makeFile("target");
  ASSERT_EQ(symlink(target.c_str(), path("link").c_str()), 0);
  const Descriptor watch(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  for (const std::string& file : {path("fifo"), target}) {
    ASSERT_GE(inotify_add_watch(watch.get(), file.c_str(), IN_OPEN), 0) << file;
  }
  const LaunchProfile profile{{profiled(path("fifo"), {{0, kMebibyte}}),
                               profiled("/dev/zero", {{0, kMebibyte}}),
                               profiled(path("link"), {{0, kMebibyte}})}};
  EXPECT_EQ(stateOf(profile), ProfileState::kOutdated);
  readAhead(profile, kNever);
  char event = 0;
  EXPECT_LT(read(watch.get(), &event, sizeof event), 0);
  EXPECT_EQ(errno, EAGAIN);  // EINVAL if there is an event, which is longer
}

// As a launch that is not inside of the device root does.
TEST_F(ReadAhead, AProcessInTheBackgroundReadsTheProfileOfADeviceRoot) {
  const std::string file = makeFile("file");
  const LaunchProfile profile{{profiled(file, {{0, 4 * kMebibyte}})}};
  const std::string root = path("device");
  std::filesystem::create_directories(root + profileFolder());
  std::ofstream(root + profileFolder() + "/app") << format(profile);
  EXPECT_TRUE(holdsOnceRemoved(file, [&] { return isCold(file) != isInMemoryOnly(); }));
  readAheadInBackground(root, "app");
  EXPECT_EQ(waitpid(-1, nullptr, 0), -1) << "the launch would have a child";
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (stateOf(profile) != ProfileState::kWarm && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(stateOf(profile), ProfileState::kWarm);
  EXPECT_FALSE(isCold(file));
}

// The process would become a child of the launch.
TEST_F(ReadAhead, NothingIsReadInTheBackgroundOfAChildSubreaper) {
  const pid_t subreaper = fork();
  if (subreaper == 0) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    readAheadInBackground(path("device"), "app");
    _exit(waitpid(-1, nullptr, 0) == -1 ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(subreaper, &status, 0), subreaper);
  EXPECT_EQ(status, 0);
}

TEST_F(ReadAhead, AMissingOrCachedProgramIsNotCold) {
  EXPECT_FALSE(isCold(path("missing")));
  EXPECT_FALSE(isCold(makeFile("program")));
}

// The kernel maps some pages around a touched one.
TEST_F(ReadAhead, TouchedPagesAreThoseThatTheProcessHasUsed) {
  const std::string file = makeFile("file");
  const Descriptor opened(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  auto* const bytes = static_cast<const volatile char*>(
      mmap(nullptr, 4 * kMebibyte, PROT_READ, MAP_PRIVATE, opened.get(), 0));
  ASSERT_NE(bytes, MAP_FAILED);
  EXPECT_EQ(bytes[3 * kMebibyte], 'x');
  const LaunchProfile profile = touchedPages();
  munmap(const_cast<char*>(bytes), 4 * kMebibyte);
  const auto found = std::find_if(profile.files.begin(), profile.files.end(),
                                  [&](const ProfiledFile& one) { return one.path == file; });
  ASSERT_NE(found, profile.files.end());
  EXPECT_EQ(found->version, profiled(file, {}).version);
  ASSERT_EQ(found->ranges.size(), 1U);
  EXPECT_LE(found->ranges[0].offset, 3 * kMebibyte);
  EXPECT_GT(found->ranges[0].offset + found->ranges[0].length, 3 * kMebibyte);
  EXPECT_GT(found->ranges[0].offset, kMebibyte);
  EXPECT_THAT(profile.files, Not(Contains(Field(&ProfiledFile::path, ""))));
}

TEST_F(ReadAhead, AHugeMappingIsLeftOutAndTheOthersAreNot) {
  constexpr std::uint64_t kHuge = std::uint64_t{8} << 40;
  const std::string file = makeFile("huge");
  std::filesystem::resize_file(file, kHuge);
  const Descriptor opened(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  void* const bytes = mmap(nullptr, kHuge, PROT_READ, MAP_SHARED, opened.get(), 0);
  ASSERT_NE(bytes, MAP_FAILED);
  EXPECT_EQ(*static_cast<const volatile char*>(bytes), 'x');
  const LaunchProfile profile = touchedPages();
  munmap(bytes, kHuge);
  EXPECT_THAT(profile.files, Not(Contains(Field(&ProfiledFile::path, file))));
  const std::string program = std::filesystem::canonical("/proc/self/exe");
  EXPECT_THAT(profile.files, Contains(Field(&ProfiledFile::path, program)));
}

}  // namespace
}  // namespace quillon::prefetch
