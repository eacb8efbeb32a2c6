#include <dirent.h>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <fstream>
#include <mutex>
#include <set>
#include <thread>

#include "plugin/src/dotnet-backtrace-creator/backtrace_creator.h"
#include "quillon_tv_plugin.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/recording_platform.h"
#include "tests/support/sanitized.h"
#include "tests/support/temporary_directory.h"
#include "tests/system/crash/scripted_signals.h"

namespace quillon::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

constexpr int kBacktraceSignal = 28;
constexpr int kThreads = 200;

// Handles the signal like the platform's crash tooling, but only records the thread instead of
// unwinding its stack.
std::array<std::atomic<pid_t>, 4 * kThreads> asked;
std::atomic<unsigned> nextPlace{0};   // in `asked`
std::atomic<unsigned> askedCount{0};  // the places that are filled

void noteThread(int) {
  const unsigned place = nextPlace++;
  if (place < asked.size()) {
    asked[place] = gettid();
  }
  ++askedCount;
}

std::multiset<pid_t> askedThreads() { return {asked.begin(), asked.begin() + askedCount}; }

// Threads that are idle until the object is destroyed.
class IdleThreads {
 public:
  explicit IdleThreads(int count) {
    for (int i = 0; i < count; ++i) {
      threads_.emplace_back([this] { idle(); });
    }
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return ids_.size() == threads_.size(); });
  }
  ~IdleThreads() {
    {
      const std::lock_guard lock(mutex_);
      over_ = true;
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) {
      thread.join();
    }
  }
  IdleThreads(const IdleThreads&) = delete;
  IdleThreads& operator=(const IdleThreads&) = delete;

  const std::multiset<pid_t>& ids() const { return ids_; }

 private:
  void idle() {
    std::unique_lock lock(mutex_);
    ids_.insert(gettid());
    changed_.notify_all();
    changed_.wait(lock, [&] { return over_; });
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::multiset<pid_t> ids_;
  bool over_ = false;
  std::vector<std::thread> threads_;
};

class Backtrace : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    nextPlace = 0;
    askedCount = 0;
    ::signal(kBacktraceSignal, noteThread);
  }

  static void awaitAsked(unsigned count) {
    while (askedCount < count) {
      std::this_thread::yield();
    }
  }

  KeptActions kept_;
};

TEST_F(Backtrace, AsksEveryThreadOnceAndLogsIt) {
  const IdleThreads threads(kThreads);
  std::multiset<pid_t> all = threads.ids();
  all.insert(gettid());
  EXPECT_EQ(print_all_backtrace(), 0);
  EXPECT_THAT(platform().trace, Contains(HasSubstr("int print_all_backtrace()")));
  awaitAsked(all.size());
  // Threads of a sanitizer also belong to the process.
  const std::multiset<pid_t> reached = askedThreads();
  EXPECT_THAT(reached, IsSupersetOf(all));
  EXPECT_EQ(reached.size(), std::set<pid_t>(reached.begin(), reached.end()).size());
  std::vector<std::string> lines = platform().lines();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.front(), "6 print_all_backtrace()");
  std::multiset<std::string> expected;
  for (const pid_t id : all) {
    expected.insert("6 " + std::to_string(id));
  }
  lines.erase(lines.begin());
  EXPECT_THAT(lines, IsSupersetOf(expected));
  if (!isSanitized()) {
    EXPECT_EQ(lines.size(), all.size());
    EXPECT_EQ(askedCount, all.size());
  }
}

TEST_F(Backtrace, LeavesNoDescriptorOpen) {
  const auto before = openDescriptors();
  EXPECT_EQ(print_all_backtrace(), 0);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Backtrace, AsksOneThreadWithoutAWord) {
  const IdleThreads threads(3);
  const pid_t chosen = *std::next(threads.ids().begin());
  EXPECT_EQ(print_backtrace(chosen), 0);
  awaitAsked(1);
  EXPECT_THAT(askedThreads(), ElementsAre(chosen));
  EXPECT_THAT(platform().lines(), IsEmpty());
}

TEST_F(Backtrace, ReturnsWhatTheCallReturns) {
  errno = 0;
  EXPECT_EQ(print_backtrace(0), -1);
  EXPECT_EQ(errno, EINVAL);
  const pid_t child = fork();
  if (child == 0) {
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  EXPECT_EQ(print_backtrace(child), -1);
  EXPECT_EQ(errno, ESRCH);
}

TEST_F(Backtrace, ANameIsLoggedAsItIsAndReadAsANumber) {
  print_name((std::to_string(gettid()) + "%s").c_str());
  EXPECT_THAT(askedThreads(), ElementsAre(gettid()));
  EXPECT_THAT(platform().lines(), ElementsAre("6 " + std::to_string(gettid()) + "%s"));
  EXPECT_EQ(platform().log[0].file(), "dotnet-backtrace-creator.cc");
  EXPECT_EQ(platform().log[0].colour(), "\x1b[31m");
  print_name("no number");
  EXPECT_EQ(askedCount, 1U);
}

std::vector<std::string> visited;
void visit(const char* name) { visited.emplace_back(name); }

TEST_F(Backtrace, TraversesInTheOrderOfTheDirectory) {
  const TemporaryDirectory folder;
  for (const char* name : {"zebra", ".hidden", "...", "ant", "12"}) {
    std::ofstream(folder.path() / name) << "x";
  }
  std::vector<std::string> order;
  DIR* directory = opendir(folder.path().c_str());
  while (const dirent* entry = readdir(directory)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      order.push_back(name);
    }
  }
  closedir(directory);
  visited.clear();
  EXPECT_EQ(dir_traverse(folder.path().c_str(), visit), 0);
  EXPECT_THAT(visited, ElementsAreArray(order));
  EXPECT_EQ(visited.size(), 5U);
}

TEST_F(Backtrace, ClosesTheDirectory) {
  const int next = dup(STDIN_FILENO);
  close(next);
  dir_traverse("/proc/self/task", visit);
  const int again = dup(STDIN_FILENO);
  close(again);
  EXPECT_EQ(again, next);
}

TEST_F(Backtrace, AMissingDirectoryHasNoEntries) {
  visited.clear();
  EXPECT_EQ(dir_traverse("/no/such/directory", visit), 0);
  EXPECT_THAT(visited, IsEmpty());
}

TEST_F(Backtrace, TheDebuggerGetsFixedAnswers) {
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(lldb_sos_get_thread_list(), 0);
    EXPECT_EQ(lldb_sos_get_managed_thread_list(), 0);
    lldb_sos_disable_smdl();
    lldb_sos_enable_smdl();
    lldb_sos_dump_manage_only_threads();
    lldb_sos_dump_manage_threads();
    lldb_sos_dump_manage_threads_with_args();
    lldb_sos_dump_manage_threads_by_tid();
    lldb_sos_set_timeout_time();
  }
  EXPECT_THAT(platform().events, IsEmpty());
  EXPECT_EQ(askedCount, 0U);
}

}  // namespace
}  // namespace quillon::test
