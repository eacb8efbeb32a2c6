#include "util/zq_utils/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include "plugin/src/dotnet-signal-handler/thread_state.h"
#include "tests/support/without_standard_input.h"

namespace {

std::atomic<int> handled{0};

// Runs `call` in a thread, and interrupts it with signals while it sleeps.
class Interrupted {
 public:
  template <typename Call>
  explicit Interrupted(Call call)
      : thread_([this, call] {
          id_ = gettid();
          call();
        }) {
    struct sigaction action = {};
    action.sa_handler = [](int) { ++handled; };
    sigaction(SIGUSR1, &action, nullptr);
    for (const int wanted = handled + 3; handled < wanted;) {
      while (id_ == 0 || isReadyToRun(id_)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      pthread_kill(thread_.native_handle(), SIGUSR1);
    }
  }
  ~Interrupted() {
    thread_.join();
    signal(SIGUSR1, SIG_DFL);
  }

 private:
  std::atomic<pid_t> id_{0};
  std::thread thread_;
};

TEST(Descriptor, MayHaveTheNumberZero) {
  const quillon::test::WithoutStandardInput without;
  {
    const Descriptor file(open("/dev/null", O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(file.get(), 0);
    EXPECT_TRUE(file.isOpen());
  }
  EXPECT_EQ(fcntl(0, F_GETFD), -1);
}

struct Pipe {
  Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0); }
  int ends[2];
};

TEST(DescriptorCalls, WriteOnAfterASignal) {
  const Pipe pipe;
  const Descriptor reader(pipe.ends[0]);
  std::string text;
  for (int number = 0; text.size() < 300'000; ++number) {  // more than a pipe holds
    text += std::to_string(number);
  }
  std::string got;
  bool written = false;
  {
    const Interrupted writer(
        [&, end = pipe.ends[1]] { written = Descriptor(end).writeAll(text.data(), text.size()); });
    char buffer[4096];
    for (ssize_t size; (size = reader.readSome(buffer, sizeof(buffer))) > 0;) {
      got.append(buffer, static_cast<std::size_t>(size));
    }
  }
  EXPECT_TRUE(written);
  EXPECT_EQ(got, text);
}

TEST(DescriptorCalls, ReadOnAfterASignal) {
  const Pipe pipe;
  const Descriptor reader(pipe.ends[0]);
  const Descriptor writer(pipe.ends[1]);
  ssize_t size = 0;
  char byte = 0;
  {
    const Interrupted waiting([&] { size = reader.readSome(&byte, 1); });
    EXPECT_TRUE(writer.writeAll("y", 1));
  }
  EXPECT_EQ(size, 1);
  EXPECT_EQ(byte, 'y');
}

TEST(DescriptorCalls, AreNotRepeatedForAnEarlierError) {
  const Pipe pipe;
  const Descriptor reader(pipe.ends[0]);
  char bytes[] = "12";
  {
    const Descriptor writer(pipe.ends[1]);
    errno = EINTR;
    EXPECT_TRUE(writer.writeAll(bytes, 2));
  }
  errno = EINTR;
  EXPECT_EQ(reader.readSome(bytes, 2), 2);
  errno = EINTR;
  EXPECT_EQ(reader.readSome(bytes, 2), 0);
}

TEST(DescriptorCalls, ReportAFailedWrite) {
  const Pipe pipe;
  const Descriptor reader(pipe.ends[0]);
  const Descriptor writer(pipe.ends[1]);
  EXPECT_FALSE(Descriptor(-1).writeAll("x", 1));
  EXPECT_EQ(errno, EBADF);
  EXPECT_FALSE(reader.writeAll("x", 1));  // the end for reading
  EXPECT_TRUE(writer.writeAll("", 0));
}

}  // namespace
